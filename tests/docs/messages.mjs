// Every message that the updater raises or writes into the status file has an entry in the
// troubleshooting page, and every entry there is a message of the source.

import { inlineCode } from "./pages.mjs";
import { argumentsAt, constantValues, readUpdaterSource } from "./source.mjs";

const page = "docs/troubleshooting.md";

// A part of a message that is not fixed, whatever the page calls it.
const variable = "\u0000";

export function checkMessages(root, pages, report) {
  const source = readUpdaterSource(root);
  const raised = collectMessages(source, report);
  const troubleshooting = pages.find(({ name }) => name === page);
  const entries = entriesOf(troubleshooting, report);
  checkExamples(troubleshooting, report);
  for (const [message, where] of raised) {
    const found = entries.filter(({ pattern }) => pattern.test(message));
    if (found.length === 0) {
      report(where, `this message has no entry in ${page}: ${shown(message)}`);
    }
    found.slice(1).forEach(({ line }) => report(`${page}:${line}`, `a second entry for ${shown(message)}`));
  }
  for (const { heading, pattern, line } of entries) {
    if (![...raised.keys()].some((message) => pattern.test(message))) {
      report(`${page}:${line}`, `no message of the source is like this: "${heading}"`);
    }
  }
  return `${raised.size} messages of the source have their entries`;
}

function shown(message) {
  return `"${message.replaceAll(variable, "…")}"`;
}

// What a failed operation of the file system library reports, as GCC's library words it and as
// Microsoft's does.
function wordingsOf(operation, paths) {
  const bracketed = paths.map((path) => ` [${path}]`).join("");
  const quoted = paths.map((path) => `"${path}"`).join(", ");
  return [`filesystem error: ${operation}: ${variable}${bracketed}`, `${operation}: ${variable}: ${quoted}`];
}

// A reader who has either library's message before him finds its wording on the page.
function checkExamples(troubleshooting, report) {
  for (const wording of wordingsOf("canonical", [variable])) {
    const example = new RegExp(`^${escaped(wording).replaceAll(variable, ".+")}$`);
    if (!inlineCode(troubleshooting).some(({ text }) => example.test(text))) {
      report(page, `no example of a message that reads ${shown(wording)}`);
    }
  }
}

// A heading that is one text in backticks is an entry; words of capitals stand for what varies.
function entriesOf({ lines }, report) {
  const entries = [];
  lines.forEach((line, index) => {
    const heading = /^### `(.+)`$/.exec(line)?.[1];
    if (!heading) {
      return;
    }
    entries.push({ heading, pattern: patternOf(heading), line: index + 1 });
    const end = lines.findIndex((other, at) => at > index && other.startsWith("#"));
    const text = lines.slice(index + 1, end < 0 ? lines.length : end);
    for (const part of ["Cause", "User", "Team"]) {
      if (!text.some((other) => other.startsWith(`- ${part}: `))) {
        report(`${page}:${index + 1}`, `the entry has no "- ${part}:"`);
      }
    }
  });
  return entries;
}

// The messages that an entry is for. An operation of the file system library is followed by the
// system's text and one or two paths, worded as either library does.
function patternOf(heading) {
  const [, operation, paths] = /^(\S+): TEXT((?: PATH){1,2})$/.exec(heading) ?? [];
  if (operation) {
    const wordings = wordingsOf(operation, paths.trim().split(" ").fill(variable));
    return new RegExp(`^(?:${wordings.map(escaped).join("|")})$`);
  }
  return new RegExp(`^${escaped(heading.replace(/\b(NUMBER|PATH|VERSION|MESSAGE)\b/g, variable))}$`);
}

function escaped(text) {
  return text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
}

function collectMessages(source, report) {
  const messages = new Map();
  const add = (file, token, texts) => {
    const where = `${file.name}:${token.line}`;
    if (texts.length === 0) {
      report(where, "this check does not understand where the message comes from");
    }
    for (const text of texts) {
      messages.set(text, messages.get(text) ?? where);
    }
  };
  for (const file of source) {
    file.tokens.forEach((token, index) => {
      const next = file.tokens[index + 1]?.text;
      if (token.text === "throw" && next !== ";") {
        addThrown(file, index, add, source);
      } else if (token.text === "RaiseFileSystemError" && next === "(" && !isDeclared(file, index)) {
        const [operation, , , secondPath] = argumentsAt(file.tokens, index + 1);
        const paths = secondPath ? [variable, variable] : [variable];
        const operations = textsOf(operation, file, index, source);
        add(file, token, operations.flatMap((name) => wordingsOf(name, paths)));
      } else if (token.text === "WriteUpdateStatus" && next === "(" && !isDeclared(file, index)) {
        const message = argumentsAt(file.tokens, index + 1)[2];
        // What the outermost handler writes was raised somewhere else.
        if (!isCaughtMessage(message)) {
          add(file, token, textsOf(message, file, index, source));
        }
      }
    });
  }
  return messages;
}

function addThrown(file, index, add, source) {
  const { tokens } = file;
  const open = tokens.findIndex((token, at) => at > index && "({".includes(token.text));
  const type = tokens.slice(index + 1, open).map(({ text }) => text).join("");
  const argument = argumentsAt(tokens, open)[0];
  if (type === "std::filesystem::filesystem_error") {
    // Its first argument is the operation that "RaiseFileSystemError" was given.
    if (file.name !== "src/support/file_system_error.cpp") {
      add(file, tokens[index], []);
    }
    return;
  }
  add(file, tokens[index], textsOf(argument, file, index, source));
}

// A call that a type's name, "&" or "*" stands before is the function's own declaration.
function isDeclared(file, index) {
  return /^(\w+|[&*])$/.test(file.tokens[index - 1]?.text ?? "") && file.tokens[index - 1].text !== "return";
}

function isCaughtMessage(argument) {
  return argument.map(({ text }) => text).join("") === "failure.what()";
}

// Returns the texts that an expression can have: literals, sums, a choice between two, constants,
// and a parameter of the function around it, which has the texts of the calls. Empty when it is
// something else.
function textsOf(expression, file, index, source) {
  const sum = splitAt(expression, "+");
  if (sum.length > 1) {
    return sum
      .map((part) => textsOf(part, file, index, source))
      .map((texts) => (texts.length > 0 ? texts : [variable]))
      .reduce((whole, texts) => whole.flatMap((text) => texts.map((other) => text + other)));
  }
  if (expression.length === 1 && expression[0].literal !== undefined) {
    return [expression[0].literal];
  }
  if (expression[0]?.text === "(") {
    const [, choices] = splitAt(expression.slice(1, -1), "?");
    return choices ? splitAt(choices, ":").flatMap((part) => textsOf(part, file, index, source)) : [];
  }
  if (expression.length === 3 && ["open", "advance"].includes(expression[2].text)) {
    return listingOperations(source);
  }
  if (expression.length === 1 && /^\w+$/.test(expression[0].text)) {
    const name = expression[0].text;
    const constant = constantValues(name, [file, ...source]);
    return constant.length > 0 ? constant : parameterTexts(name, file, index, source);
  }
  return [];
}

function splitAt(tokens, separator) {
  const parts = [[]];
  let depth = 0;
  for (const token of tokens) {
    depth += "([{".includes(token.text) ? 1 : ")]}".includes(token.text) ? -1 : 0;
    if (token.text === separator && depth === 0) {
      parts.push([]);
    } else {
      parts[parts.length - 1].push(token);
    }
  }
  return parts;
}

// The operations of every "ListingOperations" that is made with literals.
function listingOperations(source) {
  const names = [];
  for (const { tokens } of source) {
    tokens.forEach(({ text }, index) => {
      if (text !== "ListingOperations") {
        return;
      }
      const value = tokens.findIndex((token, at) => at > index && "=(){};,".includes(token.text));
      if (tokens[value].text === "=") {
        names.push(...argumentsAt(tokens, value + 1).flat().map(({ literal }) => literal));
      }
    });
  }
  return names.filter((name) => name !== undefined);
}

// The texts that the calls of the function around `index` give to its parameter.
function parameterTexts(name, file, index, source) {
  const place = enclosingParameter(name, file, index);
  if (!place) {
    return [];
  }
  const texts = [];
  for (const caller of source) {
    caller.tokens.forEach((token, at) => {
      if (token.text !== place.function || caller.tokens[at + 1]?.text !== "(" || isDeclared(caller, at)) {
        return;
      }
      const argument = argumentsAt(caller.tokens, at + 1)[place.position];
      texts.push(...(argument ? textsOf(argument, caller, at, source) : []));
    });
  }
  return [...new Set(texts)];
}

// Looks backwards for "FUNCTION(..., TYPE name, ...) {" whose body `index` lies in.
function enclosingParameter(name, { tokens }, index) {
  for (let at = index; at > 0; --at) {
    if (tokens[at].text !== "(" || !isDeclared({ tokens }, at - 1) || !/^[A-Z]\w+$/.test(tokens[at - 1].text)) {
      continue;
    }
    const parameters = argumentsAt(tokens, at);
    const position = parameters.findIndex((parameter) => parameter[parameter.length - 1]?.text === name);
    return position < 0 ? null : { function: tokens[at - 1].text, position };
  }
  return null;
}
