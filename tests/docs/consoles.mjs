// Carries the pages' console blocks out and compares what the commands print.
//
// A line that begins with a Windows prompt, "C:\directory>", is run by Wine's cmd in that directory.
// The lines after it, up to the next prompt, are what it prints; without such lines its output is
// not compared, for Windows' own programs word theirs in many ways. It must exit with 0 either way,
// unless the page shows "(exit code N)" as the output's last line. A line "$ command" is run by the
// build machine, where the scene has a directory for it in that one; its output is compared as well. In an output, a line "..." stands for any lines, and "…" for any text in a line.
//
// Above a block, "<!-- scene: NAME -->" sets a machine up and "<!-- then: NAME -->" below one looks
// at what became of it; see scenes.mjs. "<!-- not run: REASON -->" takes a block out; these are told.

import { spawnSync } from "node:child_process";
import { existsSync, mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { prompt } from "./pages.mjs";
import { outcomes, scenes } from "./scenes.mjs";

// What a command of the build machine comes down to here. The demo's building has been done.
const hostCommands = new Map([["scripts/demo", ["wine", ["build/mingw-debug/tests/demo/demo-driver.exe"]]]]);

// Some steps need an administrator's prompt, and it serves the others, too.
const administratorsPrompt = "build/mingw-debug/tests/elevation/administrators-prompt.exe";

export function runConsoles(world, pages, report) {
  let commands = 0;
  const omitted = [];
  for (const page of pages) {
    for (const step of stepsOf(page)) {
      const where = `${page.name}:${step.line}`;
      if (step.scene) {
        act(scenes, step.scene, world, where, report, page);
      } else if (step.outcome) {
        act(outcomes, step.outcome, world, where, report);
      } else if (step.block.reason) {
        omitted.push(`  ${where}: ${step.block.reason}`);
      } else {
        commands += runBlock(world, step.block, report);
      }
    }
  }
  return [`${commands} commands of the pages run as shown`, `${omitted.length} blocks are not run:`, ...omitted];
}

function stepsOf(page) {
  const marks = page.prose.flatMap(({ line, text }) => {
    const mark = /^<!-- (scene|then): (.+) -->$/.exec(text);
    return mark ? [{ line, [mark[1] === "scene" ? "scene" : "outcome"]: mark[2] }] : [];
  });
  const blocks = page.blocks.filter(({ kind }) => kind === "console").map((block) => ({ line: block.line, block }));
  return [...marks, ...blocks].sort((one, other) => one.line - other.line);
}

function act(table, name, world, where, report, page) {
  if (!table.has(name)) {
    report(where, `nothing is known of "${name}"`);
    return;
  }
  for (const finding of table.get(name)(world, page) ?? []) {
    report(where, finding);
  }
}

// Returns how many commands there were.
function runBlock(world, { page, line, lines }, report) {
  const commands = [];
  lines.forEach((text, index) => {
    const command = prompt.exec(text);
    if (command) {
      commands.push({ where: `${page}:${line + index + 1}`, prompt: command[1], text: command[2], expected: [] });
    } else if (commands.length === 0) {
      report(`${page}:${line}`, "this block begins without a prompt");
    } else {
      commands[commands.length - 1].expected.push(text);
    }
  });
  for (const { where, prompt: place, text, expected } of commands) {
    const exit = /^\(exit code (\d+)\)$/.exec(expected[expected.length - 1] ?? "");
    const { status, printed } = place === "$ " ? runOnHost(world, text) : runOnWindows(world, place, text);
    if (status !== Number(exit?.[1] ?? 0)) {
      report(where, `the command ended with ${status}; it printed:\n${printed.join("\n")}`);
    }
    const shown = exit ? expected.slice(0, -1) : expected;
    if ((shown.length > 0 || place === "$ ") && !matches(shown, printed)) {
      report(where, `the command printed something else than the page shows:\n${printed.join("\n")}`);
    }
  }
  return commands.length;
}

function runOnHost(world, text) {
  if (hostCommands.has(text)) {
    const [program, tokens] = hostCommands.get(text);
    return finished(spawnSync(program, tokens, { ...world.spawning, cwd: world.root }));
  }
  if (!world.hostDirectory) {
    return { status: "no exit code: it is none of those that this check runs", printed: [] };
  }
  return finished(spawnSync("bash", ["-c", text], { ...world.spawning, cwd: world.hostDirectory }));
}

function runOnWindows(world, place, text) {
  const directory = place.slice(0, -1);
  const hostDirectory = join(world.drive, directory.slice(3).replaceAll("\\", "/"));
  if (!existsSync(hostDirectory)) {
    return { status: `no exit code: there is no directory ${directory}`, printed: [] };
  }
  // A batch file, because a command line would pass through Wine's own quoting on its way to cmd.
  mkdirSync(world.scratch, { recursive: true });
  const command = withShortNames(world, text);
  const script = ["@echo off", `set PATH=${world.path};%PATH%`, command, "exit /b %ERRORLEVEL%", ""];
  writeFileSync(join(world.scratch, "step.cmd"), script.join("\r\n"));
  const tokens = [join(world.root, administratorsPrompt), "cmd", "/c", "C:\\updater-docs\\step.cmd"];
  const options = { ...world.spawning, cwd: hostDirectory };
  return finished(spawnSync("wine", tokens, options));
}

// The xcopy of Wine 10 takes no path with a space, quoted or not; Windows' and Wine 8's do.
function withShortNames(world, text) {
  if (!text.startsWith("xcopy ") || !(world.wineRelease >= 10)) {
    return text;
  }
  return text.replace(/"(.*?)"/g, (_, path) => {
    const { stdout } = spawnSync("wine", ["winepath", "--short", path], world.spawning);
    return `"${stdout.trim()}"`;
  });
}

function finished({ error, status, signal, stdout, stderr }) {
  if (error) {
    return { status: error.message, printed: [] };
  }
  const printed = (stdout + stderr).replaceAll("\r", "").replace(/\n+$/, "").split("\n");
  return { status: status ?? signal, printed: printed.map((line) => line.trimEnd()) };
}

function matches(expected, printed) {
  if (expected.length === 0) {
    return printed.length === 0 || (printed.length === 1 && printed[0] === "");
  }
  const [first, ...rest] = expected;
  if (first === "...") {
    return [...Array(printed.length + 1).keys()].some((skipped) => matches(rest, printed.slice(skipped)));
  }
  return printed.length > 0 && lineMatches(first.trimEnd(), printed[0]) && matches(rest, printed.slice(1));
}

function lineMatches(expected, printed) {
  const pattern = expected
    .split("…")
    .map((part) => part.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"))
    .join(".+");
  return new RegExp(`^${pattern}$`, "u").test(printed);
}
