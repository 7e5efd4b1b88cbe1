"""Compares an archive's bill of materials with the programs and the linker's maps:
check_bill_of_materials.py FOLDER BUILD"""

import hashlib
import json
import pathlib
import re
import sys

folder, build = map(pathlib.Path, sys.argv[1:])
bill = json.loads((folder / "bill-of-materials.spdx.json").read_text("utf-8"))
notices = (folder / "THIRD-PARTY-NOTICES.md").read_text("utf-8")
findings = []

# The libraries that each part comes as, where the compiler's own differ from one release to the next.
LIBRARIES = {
    "libstdcxx": {"libstdc++.a"},
    "libgcc": {"libgcc.a", "libgcc_eh.a"},
    "winpthreads": {"libpthread.a", "libwinpthread.a"},
    "mingw-w64": {"libmingw32.a", "libmingwex.a", "libmsvcrt.a", "libkernel32.a", "libmoldname.a",
                  "libadvapi32.a", "libbcrypt.a", "libole32.a", "libshell32.a", "libuser32.a", "libwinhttp.a"},
}
OWN = {"libupdater-core.a", "libupdate-client.a", "libupdatectl-commands.a"}
# Libraries that are all headers show by the names of their functions.
HEADERS = {"nlohmann-json": "8nlohmann"}
GDTOA = re.compile(r"-(gdtoa|dmisc|gmisc|smisc|mingw_pformat)\.o$")


def parts_in_map(path):
    """Returns the parts of which at least one member was taken."""
    text = path.read_text("utf-8", "replace")
    members = re.findall(r"^(\S+)\(([^)]+)\)$", text[: text.index("Memory Configuration")], re.M)
    members += re.findall(r"^(\S+)\(([^)]+)\) *\S", text[: text.index("Memory Configuration")], re.M)
    parts = set()
    for archive, member in members:
        library = archive.split("/")[-1]
        if library in OWN:
            continue
        found = [part for part, names in LIBRARIES.items() if library in names]
        if not found:
            findings.append(f"{path.name}: {library} belongs to no part that is known")
        parts.update(found)
        if GDTOA.search(member):
            parts.add("gdtoa")
    placed = text[text.index("Linker script and memory map"):]
    parts.update(part for part, mark in HEADERS.items() if mark in placed)
    return parts


def check_programs():
    for entry in bill["files"]:
        data = (folder / entry["fileName"]).read_bytes()
        sums = {sum["algorithm"]: sum["checksumValue"] for sum in entry["checksums"]}
        if sums != {"SHA1": hashlib.sha1(data).hexdigest(), "SHA256": hashlib.sha256(data).hexdigest()}:
            findings.append(f"the checksums of {entry['fileName']} are others")
    listed = sorted(entry["fileName"][2:] for entry in bill["files"])
    programs = sorted([path.name for path in folder.glob("*.exe")] +
                      [f"library/{path.name}" for path in folder.glob("library/*.dll")])
    if listed != programs:
        findings.append(f"the bill has the programs {listed}, and the archive {programs}")


def check_parts():
    packages = {package["SPDXID"] for package in bill["packages"]} - {"SPDXRef-product"}
    linked_somewhere = set()
    for program, name in (("updater", "updater.map"), ("tool", "updatectl.map"),
                          ("library", "update-client-dll.map")):
        linked = {relation["relatedSpdxElement"] for relation in bill["relationships"]
                  if relation["spdxElementId"] == f"SPDXRef-{program}" and relation["relationshipType"] == "STATIC_LINK"}
        expected = {f"SPDXRef-{part}" for part in parts_in_map(build / name)}
        if linked != expected or not expected:
            findings.append(f"the {program} holds {sorted(expected)}, and the bill has {sorted(linked)}")
        linked_somewhere |= linked
    if packages != linked_somewhere:
        findings.append(f"the bill describes {sorted(packages)}, and links {sorted(linked_somewhere)}")
    for package in packages:
        if f"| `{package.removeprefix('SPDXRef-')}` |" not in notices:
            findings.append(f"THIRD-PARTY-NOTICES.md has no row for {package}")


if bill["spdxVersion"] != "SPDX-2.3" or bill["dataLicense"] != "CC0-1.0":
    findings.append("the bill is not of the form SPDX-2.3")
check_programs()
check_parts()
print("\n".join(findings))
sys.exit(bool(findings))
