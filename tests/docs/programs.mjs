// What the pages show of a program is true: blocks of C are compiled against the library's header, as C
// and as C++, and blocks of other languages name nothing that the header does not have.

import { spawnSync } from "node:child_process";
import { readFileSync } from "node:fs";
import { join } from "node:path";

const header = "corvellan_update.h";
const directory = "src/client";

// What the team of the reader writes itself, at the most.
const mostLines = 30;

// Structures that begin with their size and nothing else are meant so.
const warnings = ["-Wall", "-Wextra", "-Werror", "-pedantic", "-Wno-missing-field-initializers"];
const compilers = [
  ["x86_64-w64-mingw32-gcc", "-x", "c", "-std=c99"],
  ["x86_64-w64-mingw32-g++", "-x", "c++", "-std=c++20"],
];

export function checkPrograms(root, pages, report) {
  const declared = namesIn(readFileSync(join(root, directory, header), "utf8"));
  const blocks = pages.flatMap((page) => page.blocks);
  const programs = blocks.filter(({ kind }) => kind === "c");
  for (const block of programs) {
    checkProgram(root, block, (what) => report(`${block.page}:${block.line}`, what));
  }
  if (!programs.some(isWhole)) {
    report("docs", `no page shows a program that includes ${header}`);
  }
  for (const block of blocks.filter(({ kind }) => ["c", "csharp"].includes(kind))) {
    for (const name of namesIn(block.lines.join("\n")).filter((other) => !declared.includes(other))) {
      report(`${block.page}:${block.line}`, `${header} does not have ${name}`);
    }
  }
  // A call or a code that a page names exists.
  for (const page of pages) {
    for (const { line, text } of page.prose) {
      for (const name of namesIn(text).filter((other) => !declared.includes(other))) {
        report(`${page.name}:${line}`, `${header} does not have ${name}`);
      }
    }
  }
  return `${programs.length} programs of the pages compile as C and as C++`;
}

function isWhole({ lines }) {
  return lines.some((line) => line === `#include "${header}"`);
}

function namesIn(text) {
  return [...new Set(text.match(/\b(?:AppUpdate[A-Z]\w*|APP_UPDATE_[A-Z_]*[A-Z])\b/g) ?? [])];
}

function checkProgram(root, block, report) {
  const text = block.lines.join("\n");
  const whole = isWhole(block);
  const program = whole ? `${text}\n` : `#include "${header}"\nint main(void) {\n${text}\nreturn 1;\n}\n`;
  for (const [compiler, ...tokens] of compilers) {
    const all = [...tokens, ...warnings, "-I", join(root, directory), "-fsyntax-only", "-"];
    const { status, stderr, error } = spawnSync(compiler, all, { input: program, encoding: "utf8" });
    if (status !== 0) {
      report(`${compiler} does not compile this:\n${error?.message ?? stderr}`);
    }
  }
  const own = text.split("\n").filter((line) => !/^\s*(\/\*.*\*\/)?\s*$/.test(line)).length;
  if (whole && own > mostLines) {
    report(`these are ${own} lines, and the page promises at most ${mostLines}`);
  }
}
