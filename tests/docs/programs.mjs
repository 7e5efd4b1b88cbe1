// What the pages show of a program is true: blocks of C are compiled against the library's header, as C
// and as C++, a whole program is linked with the library and run, and blocks of other languages name
// nothing that the header does not have.

import { spawnSync } from "node:child_process";
import { copyFileSync, mkdtempSync, readFileSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
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

// What a reader's application has already, and a server that nobody can reach.
const application = `
#include <stdio.h>
void WriteLog(const wchar_t* line) { printf("%ls\\n", line); }
int AskUser(const wchar_t* version) { printf("%ls?\\n", version); return 0; }
void SaveAndExit(void) { printf("ready\\n"); }
int main(void) { KeepUpToDate(); return 0; }
`;
const publicAddress = "https://updates.example.com/";
const unreachableAddress = "https://127.0.0.1:9/";
const expectedLog = /^No connection to the server, or it broke: https:\/\/127\.0\.0\.1:9\/update-feed\.json, error \d+$/;

export function checkPrograms(world, pages, report) {
  const { root } = world;
  const declared = namesIn(readFileSync(join(root, directory, header), "utf8"));
  const blocks = pages.flatMap((page) => page.blocks);
  const programs = blocks.filter(({ kind }) => kind === "c");
  for (const block of programs) {
    const reportHere = (what) => report(`${block.page}:${block.line}`, what);
    checkProgram(root, block, reportHere);
    if (isWhole(block)) {
      runProgram(world, block, reportHere);
    }
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
  return `${programs.length} programs of the pages compile as C and as C++, and the whole ones run`;
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

function runProgram({ root, identity, spawning }, block, report) {
  const built = join(root, "build/mingw-debug/src/client");
  const scratch = mkdtempSync(join(tmpdir(), "updater-docs-program-"));
  try {
    const program = join(scratch, "program.exe");
    const input = block.lines.join("\n").replace(publicAddress, unreachableAddress) + application;
    const library = join(built, `${identity.CLIENT_LIBRARY_STEM}.lib`);
    const tokens = ["-std=c99", "-I", join(root, directory), "-o", program, "-x", "c", "-", "-x", "none", library];
    const { status, stderr } = spawnSync(compilers[0][0], tokens, { input, encoding: "utf8" });
    if (status !== 0) {
      report(`this is not linked with the library:\n${stderr}`);
      return;
    }
    copyFileSync(join(built, identity.CLIENT_LIBRARY), join(scratch, identity.CLIENT_LIBRARY));
    const ended = spawnSync("wine", [program], spawning);
    if (ended.status !== 0 || !expectedLog.test(ended.stdout.trim())) {
      report(`this ends with ${ended.status ?? ended.error} and logs: ${ended.stdout}`);
    }
  } finally {
    rmSync(scratch, { recursive: true, force: true });
  }
}
