// Every command that the pages show is one that its program takes: the project's scripts, the two
// programs, and what CMake is asked for.

import { existsSync, readFileSync, statSync } from "node:fs";
import { join } from "node:path";
import { neededByBroker, updaterOptions } from "./options.mjs";
import { inlineCode, prompt, tableBelow } from "./pages.mjs";

export function checkCommands(root, pages, tool, identity, report) {
  const programs = { ...identity, options: updaterOptions(root), tool };
  let count = 0;
  for (const page of pages) {
    for (const { line, text } of commandLines(page)) {
      count += checkCommand(root, text, programs, (what) => report(`${page.name}:${line}`, what));
    }
  }
  checkToolTable(
    pages.find(({ name }) => name === "README.md"),
    tool,
    report,
  );
  return `${count} commands are taken by their programs`;
}

// The table has each command of the tool, with operands and options that its help knows.
function checkToolTable(readme, tool, report) {
  const rows = tableBelow(readme, "## The release tool").map((cell) => cell.split(" "));
  for (const [command, ...words] of rows) {
    const help = tool.commands.get(command) ?? "";
    for (const word of words.filter((other) => !help.includes(other))) {
      report("README.md", `the help of the command ${command} does not name ${word}`);
    }
  }
  const names = rows.map(([command]) => command).sort().join(" ");
  const expected = [...tool.commands.keys()].sort().join(" ");
  if (names !== expected) {
    report("README.md", `"## The release tool" has the commands ${names}, and the tool ${expected}`);
  }
  const [, exitCodes] = /Exit codes: (.+)\./.exec(tool.help);
  if (!readme.lines.some((line) => line.includes(exitCodes))) {
    report("README.md", `the tool's exit codes are "${exitCodes}"`);
  }
}

// Texts in backticks, and the lines of blocks without their prompts; an indented line that begins
// with an option goes on with the one before.
function commandLines(page) {
  const inBlocks = page.blocks
    .filter(({ kind }) => kind === "console" || kind === "text")
    .flatMap(({ line, lines }) =>
      lines
        .join("\n")
        .replace(/\n +(?=--)/g, " ")
        .split("\n")
        .map((text) => ({ line, text: text.replace(prompt, "$2") })),
    );
  return [...inlineCode(page), ...inBlocks];
}

// Returns 1 for a command that is one of ours, or of the build's.
function checkCommand(root, text, programs, report) {
  const words = ownWords(text.split(/\s+/));
  const program = words[0].split("\\").pop().replace(/"$/, "").replace(/\.exe$/, "");
  const given = words.filter((word) => /^--[a-z]/.test(word)).map((word) => word.replace(/=.*/, ""));
  if (isScript(root, program)) {
    checkScriptCommand(root, program, given, report);
  } else if (program === programs.RELEASE_TOOL_STEM) {
    checkToolCommand(words, given, programs.tool, report);
  } else if (program === programs.UPDATER_STEM) {
    checkUpdaterCommand(given, programs.options, report);
  } else if (program === "cmake") {
    checkBuildCommand(root, words, report);
  } else {
    return 0;
  }
  return 1;
}

function checkScriptCommand(root, program, given, report) {
  const usage = readUsage(join(root, program));
  for (const option of given.filter((name) => !usage.includes(name))) {
    report(`the usage of ${program} does not name ${option}`);
  }
}

// A mode alone names a process and no command.
function checkUpdaterCommand(given, options, report) {
  for (const option of given.filter((name) => !options.includes(name))) {
    report(`the updater has no option ${option}`);
  }
  if (given.includes("--broker") && given.length > 1) {
    for (const option of neededByBroker.filter((name) => !given.includes(name))) {
      report(`the updater needs ${option}, too`);
    }
  }
}

// Behind "start /wait" and scripts/wine-run stands another program with its options.
function ownWords(words) {
  const begin = words[0] === "start" ? 2 : words[0] === "scripts/wine-run" ? 1 : 0;
  const own = words.slice(begin);
  return begin > 0 && own.length > 0 ? [own[0].split("/").pop(), ...own.slice(1)] : words;
}

// The comment at the beginning of a script.
function readUsage(script) {
  // The comment at the beginning, and a Python program's text about itself after it.
  return /^(?:#.*\n)*(?:"""[^]*?""")?/.exec(readFileSync(script, "utf8"))[0];
}

function isScript(root, path) {
  if (!/^(scripts|tests|\.ci)\/[\w/-]+$/.test(path) || !existsSync(join(root, path))) {
    return false;
  }
  const status = statSync(join(root, path));
  return status.isFile() && (status.mode & 0o100) !== 0;
}

function checkToolCommand(words, given, tool, report) {
  const command = words[1];
  if (!command) {
    return;
  }
  if (command.startsWith("--")) {
    if (!tool.help.includes(command)) {
      report(`the release tool has no option ${command}`);
    }
    return;
  }
  if (!tool.commands.has(command)) {
    report(`the release tool has no command ${command}`);
    return;
  }
  for (const option of given.filter((name) => name !== "--help" && !tool.commands.get(command).includes(name))) {
    report(`the release tool's ${command} has no option ${option}`);
  }
}

function checkBuildCommand(root, words, report) {
  const presets = JSON.parse(readFileSync(join(root, "CMakePresets.json"), "utf8")).configurePresets;
  const preset = words[words.indexOf("--preset") + 1];
  if (words.includes("--preset") && !presets.some(({ name, hidden }) => name === preset && !hidden)) {
    report(`there is no preset ${preset}`);
    return;
  }
  const begin = words.indexOf("--target");
  const ninja = readFileSync(join(root, "build/mingw-debug/build.ninja"), "utf8");
  for (const target of begin < 0 ? [] : words.slice(begin + 1).filter((word) => !word.startsWith("-"))) {
    if (!ninja.includes(`\nbuild ${target}: `)) {
      report(`there is no target ${target}`);
    }
  }
}
