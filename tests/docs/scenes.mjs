// The machines that the pages' commands run on, and what must have become of them. A scene prepares
// one; an outcome returns what is not as the page promises.

import { spawnSync } from "node:child_process";
import { cpSync, existsSync, mkdirSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";

function uninstallKey({ identity }) {
  return `HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\${identity.APPLICATION_ID}_is1`;
}

// The user's own files in the installation directory.
const userFiles = new Map([
  ["account.db", "the user's account"],
  ["plugins/own.txt", "the user's plugin"],
]);

export const scenes = new Map([
  ["a new release", prepareRelease],
  ["a built release", prepareBuiltRelease],
  ["the feed of this page", preparePagesFeed],
  ["an interrupted update", prepareInterruptedUpdate],
]);

export const outcomes = new Map([
  ["the previous program is back", findNotRestored],
  ["the registered version is back", (world) => compare("DisplayVersion", registeredVersion(world), "1.0.0.0")],
  ["nothing is left over", (world) => places(world).leftovers.filter(existsSync).map((path) => `${path} is still there`)],
]);

// Nothing of the scenes stays in the prefix.
export function removeScenes(world) {
  const { release, install, leftovers } = places(world);
  for (const path of [release, install, world.scratch, ...leftovers]) {
    rmSync(path, { recursive: true, force: true });
  }
  reg(world, "delete", uninstallKey(world), "/f", "/reg:64");
  world.hostDirectory = null;
}

function places({ root, drive, identity }) {
  const staging = join(drive, `ProgramData/${identity.BASE_NAME}-{0D5B2A6E-8C41-4E0B-9F37-52A1C6E4D913}`);
  return {
    release: join(drive, "release"),
    install: join(drive, `Program Files/${identity.LOCAL_DIRECTORY}`),
    staging,
    leftovers: [staging, join(drive, `Program Files/${identity.LOCAL_DIRECTORY}-aside`)],
    previous: join(root, "build/mingw-debug/examples/payloads/v1"),
    next: join(root, "build/mingw-debug/examples/payloads/v2"),
  };
}

function prepareRelease(world) {
  removeScenes(world);
  const { release, next } = places(world);
  cpSync(next, join(release, "program"), { recursive: true });
  rmSync(join(release, "program/program-files.tsv"));
  writeFileSync(join(release, "program/engine.pdb"), "not installed");
  cpSync(join(world.root, "examples/setup/application.iss"), join(release, "application.iss"));
  world.hostDirectory = release;
}

function prepareBuiltRelease(world) {
  removeScenes(world);
  const { release, next } = places(world);
  cpSync(next, join(release, "program"), { recursive: true });
  cpSync(join(world.root, "build/mingw-debug/examples/setups/v2.exe"), join(release, "setup-2.exe"));
}

// The page's first block of JSON is the feed; another one has the key.
function preparePagesFeed(world, page) {
  removeScenes(world);
  const [feed] = page.blocks.filter(({ kind }) => kind === "json");
  const key = page.blocks.find(({ lines }) => lines[0] === "-----BEGIN PUBLIC KEY-----");
  world.hostDirectory = places(world).release;
  mkdirSync(world.hostDirectory, { recursive: true });
  writeFileSync(join(world.hostDirectory, "update-feed.json"), feed.lines.join("\n"));
  writeFileSync(join(world.hostDirectory, "update-key.pub.pem"), `${key.lines.join("\n")}\n`);
}

// Program files that the next version has and the previous one has not; the restore must take them
// away.
const addedFiles = ["render.dll", "tool.exe", "windows-version.json", "program-files.json", "unins000.dat", "data/new/map.txt"];

// The setup program of the next version was ended half-way: most files are new, some have come, one
// is cut off, and one is gone.
function prepareInterruptedUpdate(world) {
  removeScenes(world);
  const { install, staging, previous, next } = places(world);
  cpSync(previous, join(staging, "backup"), { recursive: true });
  writeFileSync(join(staging, "installer.exe"), "the setup program");
  writeFileSync(join(staging, "install.log"), "its log");
  cpSync(next, install, { recursive: true });
  writeFileSync(join(install, "engine.dll"), readFileSync(join(next, "engine.dll")).subarray(0, 1000));
  rmSync(join(install, "data/fonts/licence.txt"));
  const others = [...addedFiles.map((path) => [path, "of the next version"]), ...userFiles];
  for (const [path, content] of others) {
    mkdirSync(join(install, path, ".."), { recursive: true });
    writeFileSync(join(install, path), content);
  }
  reg(world, "add", uninstallKey(world), "/v", "DisplayVersion", "/t", "REG_SZ", "/d", "2.0.0.0", "/f", "/reg:64");
}

function findNotRestored(world) {
  const { install, previous } = places(world);
  const expected = readTree(previous);
  for (const [path, content] of userFiles) {
    expected.set(path, Buffer.from(content));
  }
  const found = readTree(install);
  const paths = [...new Set([...expected.keys(), ...found.keys()])];
  return paths
    .filter((path) => !(expected.has(path) && found.get(path)?.equals(expected.get(path))))
    .map((path) => `${path} is not as it was before the update`);
}

function readTree(directory) {
  const entries = readdirSync(directory, { recursive: true, withFileTypes: true }).filter((entry) => entry.isFile());
  return new Map(
    entries.map((entry) => {
      const path = join(entry.parentPath ?? entry.path, entry.name);
      return [path.slice(directory.length + 1), readFileSync(path)];
    }),
  );
}

function registeredVersion(world) {
  const { stdout } = reg(world, "query", uninstallKey(world), "/v", "DisplayVersion", "/reg:64");
  return /DisplayVersion\s+REG_SZ\s+(\S+)/.exec(stdout)?.[1];
}

function reg(world, ...tokens) {
  return spawnSync("wine", ["reg", ...tokens], world.spawning);
}

function compare(what, found, expected) {
  return found === expected ? [] : [`${what} is ${found}, not ${expected}`];
}
