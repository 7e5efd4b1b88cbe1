// Every Mermaid diagram renders.

export async function checkDiagrams(pages, report) {
  const mermaid = await loadMermaid();
  const diagrams = pages.flatMap(({ blocks }) => blocks).filter(({ kind }) => kind === "mermaid");
  for (const [index, { page, line, lines }] of diagrams.entries()) {
    try {
      await mermaid.render(`diagram-${index}`, lines.join("\n"));
    } catch (error) {
      report(`${page}:${line}`, `this diagram does not render: ${error.message}`);
    }
  }
  if (diagrams.length === 0) {
    report("docs", "there is no Mermaid diagram in any page");
  }
  return `${diagrams.length} diagrams render`;
}

// Mermaid looks for a browser's window when it is loaded, and asks it how large a text is. This
// window draws nothing, so a size is made up.
async function loadMermaid() {
  const { JSDOM } = await import("jsdom");
  const { window } = new JSDOM("", { pretendToBeVisual: true });
  Object.assign(globalThis, { window, document: window.document });
  const widthOf = (element) => 10 + 8 * (element.textContent ?? "").length;
  window.SVGElement.prototype.getBBox = function getBBox() {
    return { x: 0, y: 0, width: widthOf(this), height: 20 };
  };
  window.SVGElement.prototype.getComputedTextLength = function getComputedTextLength() {
    return widthOf(this);
  };
  const { default: mermaid } = await import("mermaid");
  // Labels of HTML would need a layout that this window has not.
  mermaid.initialize({ startOnLoad: false, flowchart: { htmlLabels: false } });
  return mermaid;
}
