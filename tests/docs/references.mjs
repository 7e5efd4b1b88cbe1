// What the pages point to exists: links, paths of the project, excerpts of its source, its scripts
// and programs with their options, and the names that the build knows.

import { existsSync, readFileSync, readdirSync, statSync } from "node:fs";
import { dirname, join, normalize } from "node:path";
import { anchors, inlineCode, tableBelow } from "./pages.mjs";
import { neededByBroker, updaterOptions } from "./options.mjs";

const blockKinds = ["console", "cpp", "json", "mermaid", "text", "tsv"];

export function checkReferences(root, pages, tool, report) {
  const counts = { links: 0, paths: 0, excerpts: 0, commands: 0 };
  const options = updaterOptions(root);
  const examples = readExamples(root);
  for (const page of pages) {
    counts.links += checkLinks(root, page, pages, report);
    counts.paths += checkPaths(root, page, report);
    for (const block of page.blocks) {
      const where = `${page.name}:${block.line}`;
      if (!blockKinds.includes(block.kind)) {
        report(where, `a block of the kind "${block.kind}", which nothing checks`);
      } else if (block.kind === "cpp") {
        counts.excerpts += 1;
        if (!examples.includes(squeezed(block.lines.join("\n")))) {
          report(where, "this excerpt is not in the source of examples/");
        }
      } else if (block.kind === "json") {
        checkJson(block.lines.join("\n"), where, report);
      }
    }
    for (const { line, text } of commandLines(page)) {
      counts.commands += checkCommand(root, text, options, tool, (what) => report(`${page.name}:${line}`, what));
    }
  }
  const readme = pages.find(({ name }) => name === "README.md");
  for (const { name } of pages.filter((page) => page !== readme)) {
    if (!readme.lines.some((line) => line.includes(`](${name})`))) {
      report("README.md", `no link to ${name}`);
    }
  }
  checkToolTable(readme, tool, report);
  return Object.entries(counts)
    .map(([what, count]) => `${count} ${what}`)
    .join(", ") + " exist";
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
}

function checkLinks(root, page, pages, report) {
  const links = page.prose.flatMap(({ line, text }) =>
    [...text.matchAll(/\]\(([^)]+)\)/g)].map((match) => ({ line, target: match[1] })),
  );
  for (const { line, target } of links) {
    const [file, anchor] = target.split("#");
    const path = file === "" ? page.name : normalize(join(dirname(page.name), file));
    const other = pages.find(({ name }) => name === path);
    if (!existsSync(join(root, path))) {
      report(`${page.name}:${line}`, `the link's target ${target} does not exist`);
    } else if (anchor && !(other && anchors(other).includes(anchor))) {
      report(`${page.name}:${line}`, `the link's target ${target} has no such heading`);
    }
  }
  return links.length;
}

// A text in backticks that begins like a path from the project's root is one. What scripts/package
// makes is in no build.
function checkPaths(root, page, report) {
  const tops = readdirSync(root).filter((name) => !["dist", "node_modules"].includes(name));
  const paths = inlineCode(page).filter(({ text }) => tops.includes(text.split(/[/ ]/)[0]));
  for (const { line, text } of paths) {
    const path = text.split(" ")[0].replace(/\/?[^/]*\*.*$/, "");
    if (!existsSync(join(root, path))) {
      report(`${page.name}:${line}`, `${path} does not exist`);
    }
  }
  return paths.length;
}

function readExamples(root) {
  const directory = join(root, "examples");
  return readdirSync(directory, { recursive: true })
    .filter((name) => /\.(cpp|h|iss)$/.test(name))
    .map((name) => squeezed(readFileSync(join(directory, name), "utf8")))
    .join("\n");
}

function squeezed(text) {
  return text.replace(/\s+/g, " ").trim();
}

function checkJson(text, where, report) {
  try {
    JSON.parse(text);
  } catch (error) {
    report(where, `no JSON: ${error.message}`);
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
        .map((text) => ({ line, text: text.replace(/^(\$ |C:\\[^>]*>)/, "") })),
    );
  return [...inlineCode(page), ...inBlocks];
}

// Returns 1 for a command that is one of ours, or of the build's.
function checkCommand(root, text, options, tool, report) {
  const words = ownWords(text.split(/\s+/));
  const program = words[0].split("\\").pop().replace(/"?$/, "").replace(/\.exe$/, "");
  const given = words.filter((word) => /^--[a-z]/.test(word)).map((word) => word.replace(/=.*/, ""));
  if (/^(scripts|tests|\.ci)\/[\w/-]+$/.test(program) && words.length > 0 && isScript(root, program)) {
    const usage = readUsage(join(root, program));
    for (const option of given.filter((name) => !usage.includes(name))) {
      report(`the usage of ${program} does not name ${option}`);
    }
    return 1;
  }
  if (program === "corvellan-updatectl") {
    checkToolCommand(words, given, tool, report);
    return 1;
  }
  if (program === "corvellan-updater" && given.length > 0) {
    for (const option of given.filter((name) => !options.includes(name))) {
      report(`corvellan-updater has no option ${option}`);
    }
    const isWhole = given.includes("--broker") && given.length > 1;
    for (const option of isWhole ? neededByBroker : []) {
      if (!given.includes(option)) {
        report(`the updater needs ${option}, too`);
      }
    }
    return 1;
  }
  if (program === "cmake" || program === "ctest") {
    checkBuildCommand(root, words, report);
    return 1;
  }
  return 0;
}

// Behind "start /wait" and scripts/wine-run stands another program with its options.
function ownWords(words) {
  const begin = words[0] === "start" ? 2 : words[0] === "scripts/wine-run" ? 1 : 0;
  const own = words.slice(begin);
  return begin > 0 && own.length > 0 ? [own[0].split("/").pop(), ...own.slice(1)] : words;
}

// The comment at the beginning of a script.
function readUsage(script) {
  const lines = readFileSync(script, "utf8").split("\n");
  const end = lines.findIndex((line) => !line.startsWith("#"));
  return lines.slice(0, end).join("\n");
}

function isScript(root, path) {
  const file = join(root, path);
  return existsSync(file) && statSync(file).isFile() && (statSync(file).mode & 0o100) !== 0;
}

function checkToolCommand(words, given, tool, report) {
  const command = words[1];
  if (!command) {
    return;
  }
  if (command.startsWith("--")) {
    if (!tool.help.includes(command)) {
      report(`corvellan-updatectl has no option ${command}`);
    }
    return;
  }
  if (!tool.commands.has(command)) {
    report(`corvellan-updatectl has no command ${command}`);
    return;
  }
  for (const option of given.filter((name) => name !== "--help" && !tool.commands.get(command).includes(name))) {
    report(`corvellan-updatectl ${command} has no option ${option}`);
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
