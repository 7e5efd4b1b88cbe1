// Every result code of the library, and every sentence that it reports, stands in the troubleshooting
// page, each sentence under its code, and nothing else does.

import { readFileSync } from "node:fs";
import { join } from "node:path";
import { argumentsAt, constantValues, readClientSource } from "./source.mjs";

const page = "docs/troubleshooting.md";
const header = "src/client/corvellan_update.h";

// A part of a sentence that is not fixed.
const variable = "\u0000";
const places = /\b(?:ADDRESS|CHANNEL|DETAIL|KEY|MESSAGE|NAME|NUMBER|PATH|TEXT|TIME|VERSION)\b/g;

export function checkResults(root, pages, report) {
  const codes = readCodes(root);
  const sections = sectionsOf(
    pages.find(({ name }) => name === page),
    report,
  );
  checkCodes(codes, sections, report);
  const source = readClientSource(root);
  const literals = sentenceLiterals(source);
  const reported = reportedSentences(source, codes);
  const rows = sections.flatMap((section) => section.rows.map((row) => ({ ...row, code: section.code })));
  for (const { code, sentence, where } of reported) {
    // Behind some sentences the function that takes them adds what they are about.
    const isEntry = (row) => row.pattern.test(sentence) || row.fixed.startsWith(`${sentence}: `);
    if (!rows.some((row) => row.code === code && isEntry(row))) {
      report(where, `${page} does not have under ${code}: ${shown(sentence)}`);
    }
  }
  for (const { text, where } of literals) {
    if (!rows.some(({ fixed }) => fixed.includes(text))) {
      report(where, `${page} does not have this sentence of the library: "${text}"`);
    }
  }
  for (const row of rows) {
    if (!literals.some(({ text }) => row.fixed.startsWith(text))) {
      report(`${page}:${row.line}`, `the library has no sentence like this: "${row.sentence}"`);
    }
  }
  return `${codes.size} result codes and ${rows.length} sentences of the library have their entries`;
}

function shown(sentence) {
  return `"${sentence.replaceAll(variable, "…")}"`;
}

// Name and value of every result.
function readCodes(root) {
  const text = readFileSync(join(root, header), "utf8");
  const [, list] = /typedef int32_t AppUpdateResult;\s*enum \{([\s\S]*?)\n\};/.exec(text);
  return new Map([...list.matchAll(/^ *(APP_UPDATE_\w+) = (\d+)/gm)].map((match) => [match[1], match[2]]));
}

// A heading "### NUMBER: `CODE`" begins the section of a code; the rows of its table are its sentences.
function sectionsOf({ lines }, report) {
  const sections = [];
  let section = null;
  lines.forEach((line, index) => {
    const [, value, code] = /^### (\d+): `(APP_UPDATE_\w+)`$/.exec(line) ?? [];
    if (code) {
      section = { code, value, line: index + 1, rows: [], parts: [] };
      sections.push(section);
    } else if (/^#/.test(line)) {
      section = null;
    }
    const sentence = section && /^\| `(.+?)` \|/.exec(line)?.[1];
    if (sentence) {
      section.rows.push({ sentence, line: index + 1, pattern: patternOf(sentence), fixed: sentence.replace(places, variable) });
    }
    section?.parts.push(...(/^- (\w+): /.exec(line)?.slice(1) ?? []));
  });
  for (const { code, parts, line } of sections) {
    if (parts.join() !== "Cause,User,Team") {
      report(`${page}:${line}`, `${code} needs "- Cause:", "- User:" and "- Team:"`);
    }
  }
  return sections;
}

function patternOf(sentence) {
  const escaped = sentence.replace(places, variable).replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  return new RegExp(`^${escaped.replaceAll(variable, "[^]*")}$`);
}

function checkCodes(codes, sections, report) {
  for (const [code, value] of codes) {
    const found = sections.filter((section) => section.code === code);
    if (found.length !== 1 || found[0].value !== value) {
      report(header, `${page} needs one section "### ${value}: \`${code}\`", and has ${found.length} of the code`);
    }
  }
  for (const { code, line } of sections.filter((section) => !codes.has(section.code))) {
    report(`${page}:${line}`, `${header} has no ${code}`);
  }
}

// Texts that begin like a sentence, wherever the library has them.
function sentenceLiterals(source) {
  return source.flatMap(({ name, tokens }) =>
    tokens
      .filter(({ literal }) => literal !== undefined && /^[A-Z][a-z']*,? [\w"]/.test(literal))
      .map(({ literal, line }) => ({ text: literal, where: `${name}:${line}` })),
  );
}

// What stands behind a code in a list of arguments is its sentence.
function reportedSentences(source, codes) {
  const found = [];
  for (const file of source) {
    file.tokens.forEach((token, index) => {
      if (!"({".includes(token.text)) {
        return;
      }
      const list = argumentsAt(file.tokens, index) ?? [];
      list.slice(0, -1).forEach((argument, at) => {
        for (const code of argument.map(({ text }) => text).filter((text) => codes.has(text))) {
          const where = `${file.name}:${token.line}`;
          const sentences = textsOf(list[at + 1], file, source).filter((text) => /[A-Za-z]/.test(text));
          found.push(...sentences.map((sentence) => ({ code, sentence, where })));
        }
      });
    });
  }
  return found;
}

// The texts that an expression can have: literals, constants, sums, choices. Nothing for others, which
// are a part that is not fixed in a sum.
function textsOf(expression, file, source) {
  const [first] = expression;
  if (expression.length === 1) {
    const [, character] = /^'\\?(.)'$/.exec(first.text) ?? [];
    if (character) {
      return [character];
    }
    return first.literal !== undefined ? [first.literal] : constantValues(first.text, [file, ...source]);
  }
  const choice = outermost(expression, "?");
  if (choice >= 0) {
    const rest = expression.slice(choice + 1);
    const other = elseOf(rest);
    return [rest.slice(0, other), rest.slice(other + 1)].flatMap((part) => textsOf(part, file, source));
  }
  const sum = outermost(expression, "+");
  if (sum >= 0) {
    const [left, right] = [expression.slice(0, sum), expression.slice(sum + 1)].map((part) => {
      const texts = textsOf(part, file, source);
      return texts.length > 0 ? texts : [variable];
    });
    return left.flatMap((text) => right.map((next) => text + next));
  }
  if (first?.text === "std" && expression[2]?.text === "string" && expression[expression.length - 1].text === ")") {
    return textsOf(expression.slice(4, -1), file, source);
  }
  return first?.text === "(" ? textsOf(expression.slice(1, -1), file, source) : [];
}

function outermost(tokens, wanted) {
  let depth = 0;
  return tokens.findIndex(({ text }) => {
    depth += "([{".includes(text) ? 1 : ")]}".includes(text) ? -1 : 0;
    return depth === 0 && text === wanted;
  });
}

// Where the ":" of a choice stands, among those of choices within it.
function elseOf(tokens) {
  let depth = 0;
  return tokens.findIndex(({ text }) => {
    depth += "([{?".includes(text) ? 1 : ")]}".includes(text) || (text === ":" && depth > 0) ? -1 : 0;
    return depth === 0 && text === ":";
  });
}
