// The tables of options, states and exit codes are those of the source.

import { readFileSync } from "node:fs";
import { join } from "node:path";
import { tableBelow } from "./pages.mjs";

export const neededByBroker = [
  "--install-dir",
  "--installer",
  "--job-dir",
  "--parent-pid",
  "--sha256",
  "--size",
  "--version",
];

export function updaterOptions(root) {
  return literals(root, "src/support/updater_arguments.h", /L"(--[a-z0-9-]+)"/g);
}

export function checkOptions(root, pages, report) {
  const readme = pages.find(({ name }) => name === "README.md");
  const tables = [
    ["## Options", updaterOptions(root)],
    ["## States", literals(root, "src/support/status_file.h", /kState\w+\[\] = "([a-z]+)"/g)],
    ["## Exit codes", literals(root, "src/support/exit_code.h", /= (\d+),/g)],
  ];
  for (const [heading, expected] of tables) {
    const documented = tableBelow(readme, heading).map((cell) => cell.split(" ")[0]);
    for (const name of expected.filter((other) => !documented.includes(other))) {
      report("README.md", `"${heading}" has no row for ${name}`);
    }
    for (const name of documented.filter((other) => !expected.includes(other))) {
      report("README.md", `"${heading}" has a row for ${name}, which the source does not have`);
    }
    if (new Set(documented).size !== documented.length) {
      report("README.md", `"${heading}" has a row twice`);
    }
  }
  return `${tables.map(([heading, rows]) => `${rows.length} rows ${heading}`).join(", ")} as in the source`;
}

function literals(root, file, pattern) {
  const found = [...readFileSync(join(root, file), "utf8").matchAll(pattern)].map((match) => match[1]);
  if (found.length < 3) {
    throw new Error(`${file} does not look as this check expects it`);
  }
  return found;
}
