// What the pages point to exists: links, paths of the project, and excerpts of its sources.

import { existsSync, readFileSync, readdirSync } from "node:fs";
import { dirname, join, normalize } from "node:path";
import { anchors, inlineCode, prompt } from "./pages.mjs";

const excerptKinds = ["cpp", "iss"];
const excerptSources = ["examples", "src", "tests"];
// Others look at what these blocks say.
const blockKinds = ["c", "console", "csharp", "json", "mermaid", "nginx", "text", ...excerptKinds];

export function checkReferences(root, pages, report) {
  const counts = { links: 0, paths: 0, excerpts: 0 };
  const sources = readExcerptSources(root);
  for (const page of pages) {
    counts.links += checkLinks(root, page, pages, report);
    counts.paths += checkPaths(root, page, report);
    for (const block of page.blocks) {
      const where = `${page.name}:${block.line}`;
      if (!blockKinds.includes(block.kind)) {
        report(where, `a block of the kind "${block.kind}", which nothing checks`);
      } else if (excerptKinds.includes(block.kind)) {
        counts.excerpts += 1;
        if (!sources.includes(squeezed(block.lines.join("\n")))) {
          report(where, `this excerpt is in no source of ${excerptSources.join(" or ")}`);
        }
      } else if (block.kind === "json") {
        checkJson(block.lines.join("\n"), where, report);
      } else if (block.kind === "text" && block.lines.some((line) => prompt.test(line))) {
        report(where, "commands belong in a block of the kind console, which is carried out");
      }
    }
  }
  const readme = pages.find(({ name }) => name === "README.md");
  for (const { name } of pages.filter((page) => page !== readme)) {
    if (!readme.lines.some((line) => line.includes(`](${name})`))) {
      report("README.md", `no link to ${name}`);
    }
  }
  return Object.entries(counts)
    .map(([what, count]) => `${count} ${what}`)
    .join(", ") + " exist";
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

function readExcerptSources(root) {
  return excerptSources
    .flatMap((directory) =>
      readdirSync(join(root, directory), { recursive: true }).map((name) => join(root, directory, name)),
    )
    .filter((file) => /\.(cpp|h|iss)$/.test(file))
    .map((file) => squeezed(readFileSync(file, "utf8")))
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
