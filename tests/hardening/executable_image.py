"""What the checks of a finished executable read from its file: sections, tables, delayed imports.

Addresses are relative to the image's base, as the file's own are, unless a name says otherwise.
"""

import struct
import sys
from typing import NamedTuple

# The entries of the header's list of tables.
FUNCTIONS = 3
BASE_RELOCATIONS = 5
THREAD_STORAGE = 9
LOAD_CONFIGURATION = 10
IMPORT_ADDRESSES = 12
DELAYED_IMPORTS = 13

RECORD_SIZE = 32


class Section(NamedTuple):
    """A section as the header describes it."""

    name: str
    address: int
    size: int
    offset: int
    file_size: int
    flags: int

    def is_executable(self):
        return self.flags & 0x20000000 != 0

    def is_writable(self):
        return self.flags & 0x80000000 != 0


class Image(NamedTuple):
    """An executable's content, its base, where its list of tables stands, and its sections."""

    content: bytes
    base: int
    directories: int
    sections: list


class DelayedLibrary(NamedTuple):
    """One record of the table of delayed imports."""

    name: str
    handle: int
    slots: int
    functions: int


def read_image(path):
    with open(path, "rb") as file:
        content = file.read()
    header = struct.unpack_from("<I", content, 0x3C)[0]
    count = struct.unpack_from("<H", content, header + 6)[0]
    optional_header = header + 24
    table = optional_header + struct.unpack_from("<H", content, header + 20)[0]
    base = struct.unpack_from("<Q", content, optional_header + 24)[0]
    sections = [read_section(content, table + 40 * index) for index in range(count)]
    return Image(content, base, optional_header + 112, sections)


def read_section(content, at):
    name, size, address, file_size, offset = struct.unpack_from("<8sIIII", content, at)
    flags = struct.unpack_from("<I", content, at + 36)[0]
    return Section(
        name.rstrip(b"\0").decode(), address, max(size, file_size), offset, file_size, flags
    )


def directory(image, index):
    """Returns the address and the size of one of the header's tables."""
    return struct.unpack_from("<II", image.content, image.directories + 8 * index)


def section_at(image, address):
    """Returns the section that the address is in, or None."""
    for section in image.sections:
        if section.address <= address < section.address + section.size:
            return section
    return None


def values_at(image, address, layout):
    """Returns the values that the file holds at the address, or None where it holds nothing."""
    section = section_at(image, address)
    if section is None or address + struct.calcsize(layout) > section.address + section.file_size:
        return None
    return struct.unpack_from(layout, image.content, section.offset + address - section.address)


def text_at(image, address):
    section = section_at(image, address)
    if section is None or address >= section.address + section.file_size:
        return b""
    begin = section.offset + address - section.address
    return image.content[begin : image.content.find(b"\0", begin)]


def positions(image, pattern):
    """Yields each address at which the file holds the pattern."""
    at = image.content.find(pattern)
    while at >= 0:
        for section in image.sections:
            if section.offset <= at < section.offset + section.file_size:
                yield section.address + at - section.offset
        at = image.content.find(pattern, at + 1)


def find_delayed_imports(image):
    """Returns the address and the number of records of the only table of delayed imports.

    The table is found by its form: successive records, each with the attribute 1 and the address of
    a library's name.
    """
    tables = []
    for section in image.sections:
        start = None
        for at in range(section.address, section.address + section.file_size - RECORD_SIZE, 4):
            if start is not None and (at - start) % RECORD_SIZE != 0:
                continue
            if is_record(image, at):
                start = at if start is None else start
            elif start is not None:
                tables.append((start, (at - start) // RECORD_SIZE))
                start = None
    if len(tables) != 1:
        sys.exit(f"{len(tables)} tables of delayed imports instead of one")
    return tables[0]


def is_record(image, at):
    attributes, name = values_at(image, at, "<II")
    return attributes == 1 and text_at(image, name).lower().endswith(b".dll")


def delayed_libraries(image):
    """Returns what the records of the table of delayed imports say."""
    address, records = find_delayed_imports(image)
    return [delayed_library(image, address + index * RECORD_SIZE) for index in range(records)]


def delayed_library(image, address):
    _, name, handle, slots, names = values_at(image, address, "<IIIII")
    functions = 0
    while values_at(image, names + 8 * functions, "<Q") != (0,):
        functions += 1
    return DelayedLibrary(text_at(image, name).decode(), handle, slots, functions)
