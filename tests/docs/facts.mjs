// Names, limits and lists that pages repeat are those of the source.

import { readFileSync } from "node:fs";
import { join } from "node:path";
import { constantValues, readUpdaterSource } from "./source.mjs";

const inSeconds = (milliseconds) => `${milliseconds / 1000} s`;
const inMilliseconds = (milliseconds) => `${milliseconds} ms`;

// Each constant, the pages that repeat all of its values, and how they write one.
const facts = [
  ["kHandshakeLimit", ["docs/architecture.md"], inSeconds],
  ["kExitLimitAfterCommit", ["docs/architecture.md"], inSeconds],
  ["kPollingInterval", ["docs/architecture.md"], inMilliseconds],
  ["kStagingSecurity", ["docs/security.md"]],
  ["kInstallMutex", ["docs/architecture.md", "docs/security.md"]],
  ["kCancelMarker", ["README.md", "docs/architecture.md", "docs/integration-without-library.md"]],
  ["kUninstallKey", ["docs/recovery.md"]],
  ["kAssetExtensions", ["docs/architecture.md", "docs/recovery.md"]],
  ["kAssetNames", ["docs/architecture.md", "docs/recovery.md"]],
];

export function checkFacts(root, pages, report) {
  const source = readUpdaterSource(root);
  let count = 0;
  for (const [constant, names, written = (value) => value] of facts) {
    const values = constantValues(constant, source);
    if (values.length === 0) {
      report("src", `${constant} is not found`);
    }
    for (const name of names) {
      const text = pages.find((page) => page.name === name).lines.join("\n");
      for (const value of values.map(written).filter((shown) => !text.includes(shown))) {
        report(name, `${constant} is "${value}", which the page does not say`);
      }
      count += values.length;
    }
  }
  checkVersion(root, pages, report);
  return `${count} names and limits as in the source`;
}

function checkVersion(root, pages, report) {
  const [, version] = /project\(\S+ VERSION (\S+)/.exec(readFileSync(join(root, "CMakeLists.txt"), "utf8"));
  const { lines } = pages.find(({ name }) => name === "CHANGELOG.md");
  const newest = lines.find((line) => line.startsWith("## [") && line !== "## [Unreleased]");
  if (!newest?.startsWith(`## [${version}] - `)) {
    report("CHANGELOG.md", `the project's version is ${version}, but the newest one here is "${newest}"`);
  }
}
