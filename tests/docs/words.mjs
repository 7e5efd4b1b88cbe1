// The pages say nothing that only the people who write them could understand or use.

// The character classes keep this list out of searches for the words.
const unwanted = [
  [/\bspe[c](s|ifications?)?\b/i, "no reader has such a document"],
  [/\bPar[t] \d/, "no reader has such a document"],
  [/(^|[^\w.])\/(wor[k]|tm[p]|hom[e]|roo[t])\b/, "a path of somebody's machine"],
  // These names are ones that nobody can have.
  [/https?:\/\/(?!(?:(?:updates\.)?example\.com|localhost)\b)[\w-]/, "a page of somebody else, which may go away"],
  [/\b(TOD[O]|FIXM[E]|TB[D])\b/, "unfinished"],
];

export function checkWords(pages, report) {
  for (const { name, lines } of pages) {
    lines.forEach((text, index) => {
      for (const [pattern, why] of unwanted) {
        const found = pattern.exec(text);
        if (found) {
          report(`${name}:${index + 1}`, `"${found[0].trim()}": ${why}`);
        }
      }
    });
  }
  return `${pages.length} pages without unwanted words`;
}
