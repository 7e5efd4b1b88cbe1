// The settings of a server that a page shows are good, and give the library what it uses: entity tags,
// parts of a file, and the page's headers for caches. Certificate, key, files and address are the check's
// own; all else is as the page has it, on a machine whose other settings compress everything.

import { spawn, spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { request } from "node:https";
import { tmpdir } from "node:os";
import { join } from "node:path";

const tries = 600;
const pause = 100;

export async function checkServers(pages, report) {
  const blocks = pages.flatMap((page) => page.blocks).filter(({ kind }) => kind === "nginx");
  for (const block of blocks) {
    const directory = mkdtempSync(join(tmpdir(), "updater-docs-server-"));
    try {
      await checkServer(directory, block.lines.join("\n"), (what) => report(`${block.page}:${block.line}`, what));
    } finally {
      rmSync(directory, { recursive: true, force: true });
    }
  }
  return `${blocks.length} servers of the pages serve as they should`;
}

async function checkServer(directory, text, report) {
  const settings = prepare(directory, text, report);
  const server = spawn("nginx", ["-p", directory, "-e", join(directory, "error.log"), "-c", settings], {
    stdio: "ignore",
  });
  const failure = new Promise((resolve) => server.on("error", (error) => resolve(error.message)));
  try {
    const socket = join(directory, "socket");
    const began = await Promise.race([failure, awaitServer(socket, server)]);
    if (began !== null) {
      report(`nginx does not begin with these settings: ${began}`);
      return;
    }
    await checkAnswers(socket, report);
  } finally {
    const ended = new Promise((resolve) => server.on("exit", resolve));
    if (server.exitCode === null && server.kill("SIGTERM")) {
      await ended;
    }
  }
}

function prepare(directory, text, report) {
  const put = (from, to) => {
    if (!text.includes(from)) {
      report(`the settings do not say "${from}"`);
    }
    text = text.replaceAll(from, to);
  };
  const files = join(directory, "files");
  mkdirSync(files);
  writeFileSync(join(files, "update-feed.json"), '{"a":"feed"}'.padEnd(2000));
  writeFileSync(join(files, "setup-2.exe"), "a setup program".padEnd(2000));
  put("listen 443 ssl;", `listen unix:${join(directory, "socket")} ssl;`);
  put("/etc/ssl/updates/", `${directory}/`);
  put("root /srv/updates;", `root ${files};`);
  const key = ["ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", join(directory, "key.pem")];
  const certificate = ["req", "-x509", "-key", join(directory, "key.pem"), "-subj", "/CN=updates.example.com"];
  for (const tokens of [key, [...certificate, "-days", "2", "-out", join(directory, "certificate.pem")]]) {
    const { status, stderr } = spawnSync("openssl", tokens, { encoding: "utf8" });
    if (status !== 0) {
      report(`openssl makes no certificate: ${stderr}`);
    }
  }
  const paths = ["client_body", "proxy", "fastcgi", "uwsgi", "scgi"].map(
    (name) => `${name}_temp_path ${join(directory, name)};`,
  );
  const user = process.getuid() === 0 ? "user root;" : "";
  const settings = join(directory, "nginx.conf");
  writeFileSync(
    settings,
    `${user} daemon off; master_process off; pid ${join(directory, "pid")}; events {}
http { access_log off; default_type application/octet-stream; gzip on; gzip_types *; gzip_min_length 1; ${paths.join(" ")}
${text}
}
`,
  );
  return settings;
}

async function awaitServer(socket, server) {
  for (let count = 0; count < tries && server.exitCode === null; ++count) {
    try {
      await ask(socket, "/update-feed.json", {});
      return null;
    } catch {
      await new Promise((resolve) => setTimeout(resolve, pause));
    }
  }
  return `it ended with ${server.exitCode}`;
}

function ask(socketPath, path, headers) {
  return new Promise((resolve, reject) => {
    const options = { socketPath, path, headers, rejectUnauthorized: false, servername: "updates.example.com" };
    const asked = request(options, (answer) => {
      let length = 0;
      answer.on("data", (bytes) => (length += bytes.length));
      answer.on("end", () => resolve({ status: answer.statusCode, headers: answer.headers, length }));
      answer.on("error", reject);
    });
    asked.on("error", reject);
    asked.end();
  });
}

async function checkAnswers(socket, report) {
  const expect = (what, found, expected) => {
    if (found !== expected) {
      report(`${what} is ${found}, not ${expected}`);
    }
  };
  const feed = await ask(socket, "/update-feed.json", { "accept-encoding": "gzip" });
  expect("the feed's status", feed.status, 200);
  expect("the feed's length", feed.headers["content-length"], "2000");
  expect("the feed's Cache-Control", feed.headers["cache-control"], "no-cache");
  const hasStrongTag = ({ headers }) => /^"[^"]+"$/.test(headers.etag ?? "");
  expect("whether the feed's entity tag is a strong one", hasStrongTag(feed), true);
  if (!hasStrongTag(feed)) {
    return;
  }
  const again = await ask(socket, "/update-feed.json", { "if-none-match": feed.headers.etag });
  expect("the status for a feed that has not changed", again.status, 304);

  const setup = await ask(socket, "/setup-2.exe", {});
  expect("the setup program's Cache-Control", setup.headers["cache-control"], "public, max-age=31536000, immutable");
  const range = { range: "bytes=500-", "if-range": setup.headers.etag };
  const rest = await ask(socket, "/setup-2.exe", range);
  expect("the status for the rest of a file", rest.status, 206);
  expect("the rest's length", rest.length, 1500);
  const other = await ask(socket, "/setup-2.exe", { ...range, "if-range": '"another"' });
  expect("the status for the rest of another file", other.status, 200);
}
