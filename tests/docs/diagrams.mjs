// Every Mermaid diagram is one that Mermaid understands.

export async function checkDiagrams(pages, report) {
  const { JSDOM } = await import("jsdom");
  // Mermaid looks for a browser's window when it is loaded.
  const { window } = new JSDOM("");
  Object.assign(globalThis, { window, document: window.document });
  const { default: mermaid } = await import("mermaid");
  const diagrams = pages.flatMap(({ blocks }) => blocks).filter(({ kind }) => kind === "mermaid");
  for (const { page, line, lines } of diagrams) {
    try {
      await mermaid.parse(lines.join("\n"));
    } catch (error) {
      report(`${page}:${line}`, `this diagram does not render: ${error.message}`);
    }
  }
  if (diagrams.length === 0) {
    report("docs", "there is no Mermaid diagram in any page");
  }
  return `${diagrams.length} diagrams render`;
}
