// Starts a kestd of its own over a fresh directory, on a free port, and ends it again.
import { spawn } from "node:child_process";
import { mkdtemp, mkdir, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { createInterface } from "node:readline";

const checkout = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../../..");
const program = process.env.KESTD || path.join(checkout, "build/release/bin/kestd");
const kStartTime = 20_000;

// Names that try to become markup, script, paths or escapes. None may do anything but be shown.
export const hostileNames = [
    "<img src=x onerror=pwned()>.txt",
    '"onmouseover="pwned()" x=".txt',
    "' onfocus=pwned() autofocus='.txt",
    "<script>pwned()<script>.txt",
    "<!--OlmDAV:Files-->.txt",
    "]]>.txt",
    "a&b &amp; c.txt",
    "100%.txt",
    "%41%2F.txt",
    "what?.txt",
    "hash#tag.txt",
    "plus+plus.txt",
    "semi;colon=equals.txt",
    "back\\slash.txt",
    "two  blanks.txt",
    "emoji \u{1F600}\u{1F468}\u200D\u{1F469}.txt",
    "\u05E9\u05DC\u05D5\u05DD.txt",
    "e\u0301 combining.txt",
    "javascript:pwned().txt",
];

// `options` go behind "serve"; without a --listen among them it is a loopback address.
export async function startServer(options = ["--listen", "127.0.0.1:0"]) {
    const home = await mkdtemp(path.join(tmpdir(), "kestd-browser-"));
    const folder = path.join(home, "files");
    await mkdir(folder);
    const child = spawn(program, ["serve", "--state-dir", home, ...options, "files=" + folder], {
        cwd: home,
        stdio: ["ignore", "pipe", "pipe"],
    });
    const log = [];
    child.stderr.on("data", (data) => log.push(data));
    const url = await new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error("no ready line:\n" + log.join(""))), kStartTime);
        createInterface({ input: child.stdout }).on("line", (line) => {
            const match = /^kestd: serving (http:\S+)$/.exec(line);
            if (match) {
                clearTimeout(timer);
                resolve(match[1]);
            }
        });
        child.on("exit", (code) => reject(new Error(`kestd ended with ${code}:\n` + log.join(""))));
    });
    return {
        url, // ends with /Ferro/
        folder,
        write: (name, content) => writeFile(path.join(folder, name), content),
        makeFolder: (name) => mkdir(path.join(folder, name)),
        stop: async () => {
            const gone = new Promise((resolve) => child.on("close", resolve));
            child.kill("SIGTERM");
            await gone;
            await rm(home, { recursive: true, force: true });
            return log.join("");
        },
    };
}
