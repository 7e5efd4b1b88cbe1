// Checks the documentation; started by tests/docs/check.

import { spawnSync } from "node:child_process";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { checkCommands } from "./commands.mjs";
import { runConsoles } from "./consoles.mjs";
import { checkDiagrams } from "./diagrams.mjs";
import { checkFacts } from "./facts.mjs";
import { readIdentity } from "./identity.mjs";
import { checkMessages } from "./messages.mjs";
import { checkOptions } from "./options.mjs";
import { readPages } from "./pages.mjs";
import { checkPrograms } from "./programs.mjs";
import { checkReferences } from "./references.mjs";
import { checkResults } from "./results.mjs";
import { removeScenes } from "./scenes.mjs";
import { checkServers } from "./servers.mjs";
import { checkWords } from "./words.mjs";

const root = fileURLToPath(new URL("../..", import.meta.url)).replace(/\/$/, "");
const prefix = process.env.WINEPREFIX;

function windowsPath(path) {
  return `Z:${join(root, path).replaceAll("/", "\\")}`;
}

const identity = readIdentity(root);

const world = {
  root,
  identity,
  drive: join(prefix, "drive_c"),
  scratch: join(prefix, "drive_c/updater-docs"),
  path: ["build/mingw-debug/src", "build/mingw-debug/tests/updatectl/support_tool", "node_modules/innosetup/bin"]
    .map(windowsPath)
    .join(";"),
  wineRelease: Number.parseInt(spawnSync("wine", ["--version"], { encoding: "utf8" }).stdout.replace("wine-", ""), 10),
  spawning: { encoding: "utf8", stdio: ["ignore", "pipe", "pipe"], timeout: 120000 },
};

function toolHelp(...tokens) {
  const tool = join(root, "build/mingw-debug/src/updatectl", identity.RELEASE_TOOL);
  const { status, stdout } = spawnSync("wine", [tool, ...tokens, "--help"], world.spawning);
  if (status !== 0) {
    throw new Error(`${identity.RELEASE_TOOL_STEM} ${tokens.join(" ")} --help ended with ${status}`);
  }
  return stdout;
}

// The tool's commands with their help.
function readTool() {
  const help = toolHelp();
  const names = [...help.matchAll(/^ {2}([a-z]+) {2,}/gm)].map((match) => match[1]);
  return { help, commands: new Map(names.map((name) => [name, toolHelp(name)])) };
}

const findings = [];
const report = (where, what) => findings.push(`${where}: ${what}`);
const pages = readPages(root);

const results = [
  checkMessages(root, pages, report),
  checkResults(root, pages, report),
  checkOptions(root, pages, report),
  checkFacts(root, pages, report),
  checkWords(pages, report),
  checkReferences(root, pages, report),
  checkCommands(root, pages, readTool(), identity, report),
  checkPrograms(world, pages, report),
  await checkDiagrams(pages, report),
  await checkServers(pages, report),
];
try {
  results.push(...runConsoles(world, pages, report));
} finally {
  removeScenes(world);
}

if (findings.length > 0) {
  console.error(findings.join("\n"));
  console.error(`${findings.length} findings in the documentation`);
  process.exit(1);
}
console.log(results.join("\n"));
