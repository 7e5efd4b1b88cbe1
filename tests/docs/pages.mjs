// The documentation's pages, taken apart.

import { readFileSync, readdirSync } from "node:fs";
import { join } from "node:path";

// A line with a command: the prompt, of the build machine or of Windows, and the command.
export const prompt = /^(\$ |C:\\[^>]*>)(.*)$/;

// Returns every page as { name, lines, blocks, prose }: `blocks` are the fenced blocks, `prose` the
// numbered lines outside them.
export function readPages(root) {
  const names = ["README.md", "CONTRIBUTING.md", "CHANGELOG.md"].concat(
    readdirSync(join(root, "docs"))
      .filter((name) => name.endsWith(".md"))
      .sort()
      .map((name) => `docs/${name}`),
  );
  return names.map((name) => takeApart(name, readFileSync(join(root, name), "utf8")));
}

export function takeApart(name, text) {
  const page = { name, lines: text.split("\n"), blocks: [], prose: [] };
  let block = null;
  page.lines.forEach((line, index) => {
    const fence = /^ *```(.*)$/.exec(line);
    if (fence && block) {
      page.blocks.push(block);
      block = null;
    } else if (fence) {
      block = { page: name, line: index + 1, kind: fence[1].trim(), lines: [], reason: reasonBefore(page.lines, index) };
    } else if (block) {
      block.lines.push(line);
    } else {
      page.prose.push({ line: index + 1, text: line });
    }
  });
  if (block) {
    throw new Error(`${name}:${block.line}: this fenced block has no end`);
  }
  return page;
}

// "<!-- not run: REASON -->" in the line before a block takes it out of the check.
function reasonBefore(lines, index) {
  const marker = /^ *<!-- not run: (.+) -->$/.exec(lines[index - 1] ?? "");
  return marker ? marker[1] : null;
}

// Returns { line, text } for each text in single backticks.
export function inlineCode(page) {
  return page.prose.flatMap(({ line, text }) =>
    [...text.matchAll(/`([^`]+)`/g)].map((match) => ({ line, text: match[1] })),
  );
}

// The first cells of the table below a heading, without their backticks.
export function tableBelow(page, heading) {
  const begin = page.lines.indexOf(heading);
  if (begin < 0) {
    throw new Error(`${page.name} has no heading "${heading}"`);
  }
  const rows = [];
  for (const line of page.lines.slice(begin + 1)) {
    if (line.startsWith("|")) {
      rows.push(line.split("|")[1].trim().replaceAll("`", ""));
    } else if (rows.length > 0) {
      break;
    }
  }
  return rows.slice(2);
}

// The anchors that a page's headings and "<a id>" elements make.
export function anchors(page) {
  const found = [];
  for (const { text } of page.prose) {
    const heading = /^#+ (.+)$/.exec(text);
    if (heading) {
      found.push(
        heading[1]
          .toLowerCase()
          .replace(/[^\p{L}\p{N} _-]/gu, "")
          .replaceAll(" ", "-"),
      );
    }
    for (const match of text.matchAll(/<a id="([^"]+)">/g)) {
      found.push(match[1]);
    }
  }
  return found;
}
