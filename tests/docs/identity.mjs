// Whose updater the debug build is: the entries of the identity file without "IDENTITY_".

import { readFileSync } from "node:fs";
import { join } from "node:path";

export function readIdentity(root) {
  const lines = readFileSync(join(root, "build/mingw-debug/identity/identity.txt"), "utf8").trim().split("\n");
  return Object.fromEntries(lines.map((line) => /^IDENTITY_(\w+)=(.*)$/.exec(line).slice(1)));
}
