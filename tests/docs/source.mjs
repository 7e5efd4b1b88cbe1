// The updater's source, as far as the checks need to understand it.

import { readFileSync, readdirSync } from "node:fs";
import { join } from "node:path";
import { readIdentity } from "./identity.mjs";

// The release tool has messages of its own, which never reach a status file, and so has the library.
const otherPrograms = ["updatectl", "client"];

// Returns the updater's source files as { name, tokens }.
export function readUpdaterSource(root) {
  return readSource(root, (module) => !otherPrograms.includes(module));
}

// Returns those of the application's half of an update.
export function readClientSource(root) {
  return readSource(root, (module) => module === "client");
}

function readSource(root, isWanted) {
  const directory = join(root, "src");
  const identity = readIdentity(root);
  return readdirSync(directory, { recursive: true })
    .map((name) => name.replaceAll("\\", "/"))
    .filter((name) => /\.(cpp|h)$/.test(name) && isWanted(name.split("/")[0]))
    .sort()
    .map((name) => {
      const text = readFileSync(join(directory, name), "utf8");
      return { name: `src/${name}`, tokens: tokenize(text, identity) };
    });
}

// Splits C++ into tokens { text, line, literal }; comments are dropped, `literal` is a narrow or
// wide string's content, and literals that stand next to each other become one. An entry of the
// identity is the literal that the build makes of it.
function tokenize(text, identity) {
  const pattern =
    /\/\/[^\n]*|\/\*[\s\S]*?\*\/|#[^\n]*|L?R"\(([\s\S]*?)\)"|L?"((?:[^"\\\n]|\\.)*)"|L?'(?:[^'\\]|\\.)+'|[A-Za-z_]\w*|\d[\w.]*|::|\s+|./g;
  const tokens = [];
  let line = 1;
  for (const match of text.matchAll(pattern)) {
    const entry = /^IDENTITY_(\w+)$/.exec(match[0])?.[1];
    const literal = entry ? identity[entry] : (match[1] ?? (match[2] === undefined ? undefined : unescape(match[2])));
    const last = tokens[tokens.length - 1];
    if (literal !== undefined && last?.literal !== undefined) {
      last.literal += literal;
    } else if (!/^(\s|\/\/|\/\*|#)/.test(match[0])) {
      tokens.push({ text: match[0], line, literal });
    }
    line += match[0].split("\n").length - 1;
  }
  return tokens;
}

function unescape(text) {
  return text.replace(/\\(.)/g, (_, character) => ({ n: "\n", t: "\t" })[character] ?? character);
}

// Returns the arguments of the call whose opening parenthesis or brace stands at `open`, each as its
// tokens.
export function argumentsAt(tokens, open) {
  const list = [[]];
  let depth = 0;
  for (let index = open; index < tokens.length; ++index) {
    const { text } = tokens[index];
    if ("([{".includes(text) && depth++ === 0) {
      continue;
    }
    if (")]}".includes(text) && --depth === 0) {
      return list;
    }
    if (text === "," && depth === 1) {
      list.push([]);
    } else {
      list[list.length - 1].push(tokens[index]);
    }
  }
  return list;
}

// Returns the literals and numbers of the constant's definition, in the first file that has one;
// constants in it are replaced by theirs.
export function constantValues(name, source) {
  if (!/^k[A-Z]/.test(name)) {
    return [];
  }
  for (const { tokens } of source) {
    const index = tokens.findIndex(({ text }, at) => text === name && isDefinition(tokens, at));
    if (index >= 0) {
      const end = tokens.findIndex(({ text }, at) => at > index && text === ";");
      return tokens.slice(index + 1, end).flatMap((token) => valuesOf(token, source));
    }
  }
  return [];
}

function isDefinition(tokens, index) {
  const next = tokens.slice(index + 1, index + 4).map(({ text }) => text).join("");
  return /^[\w>*]+$/.test(tokens[index - 1]?.text ?? "") && (next.startsWith("=") || next.startsWith("[]="));
}

function valuesOf({ text, literal }, source) {
  if (literal !== undefined || /^\d/.test(text)) {
    return [literal ?? text];
  }
  return constantValues(text, source);
}
