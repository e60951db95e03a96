// Nothing that somebody stores, and nothing that another site says, runs as a script of this server.
import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import path from "node:path";
import { after, before, describe, it } from "node:test";
import { chromium } from "playwright-core";
import { hostileNames, startServer } from "./server.mjs";

const browserPath = process.env.CHROMIUM || "/usr/bin/chromium";
const foreignName = "evil.test"; // leads to this machine, as its owner wants it

// What runs calls pwned(), which is known here, and leaves a file behind.
const script = 'pwned(); fetch("/Ferro/files/pwned-file", { method: "PUT", body: "x" });';

// Names without "/" that bring a script along, each of which some browser once ran.
const scriptNames = [
    ...hostileNames,
    "<script src=evil.js>",
    "<script src=evil.js type=module>",
    "<script>pwned()",
    `<iframe srcdoc="<script src='evil.js'>&lt;&#47;script>">`,
    "<iframe srcdoc='&lt;script src=evil.js&gt;&lt;&sol;script&gt;'>",
    "<iframe srcdoc='<script>pwned()<&sol;script>'>",
    "<iframe src=evil.html>",
    "<iframe src=evil.svg>",
    "<iframe src=javascript:pwned()>",
    "<object data=evil.html>",
    "<embed src=evil.svg>",
    "<svg onload=pwned()>",
    "<svg><script href=evil.js>",
    "<svg><animate onbegin=pwned() attributeName=x dur=1s>",
    "<details open ontoggle=pwned()>",
    "<img src=x onerror=pwned()>",
    "<body onload=pwned()>",
    "<input onfocus=pwned() autofocus>",
    "<link rel=stylesheet href=evil.css>",
    "<link rel=modulepreload href=evil.js>",
    "<base href=evil.test>",
    "<meta http-equiv=refresh content='0;url=javascript:pwned()'>",
    "<a href=javascript:pwned()>click me",
    "<form action=javascript:pwned()><button id=press>press",
    "<template><img src=x onerror=pwned()>",
    "<noscript><img src=x onerror=pwned()>",
    "\"><iframe srcdoc=\"<script src='evil.js'>&lt;&#47;script>\">",
    "'><iframe srcdoc='<script src=evil.js>&lt;&#47;script>'>",
    "]]><iframe srcdoc='<script src=evil.js>&lt;&#47;script>'>",
    "--><iframe srcdoc='<script src=evil.js>&lt;&#47;script>'>",
    "javascript:pwned()",
    "data:text,<script>pwned()",
];

const page = (body) => `<!DOCTYPE html><html><head><title>x</title></head><body>${body}</body></html>`;
const active = `<script>${script}</script><script src="evil.js"></script><img src=x onerror="${script.replaceAll('"', "&quot;")}">`;
const xhtml = `<html xmlns="http://www.w3.org/1999/xhtml"><head/><body><script>${script}</script></body></html>`;
const svg = `<svg xmlns="http://www.w3.org/2000/svg" onload='${script}' width="5" height="5"><script>${script}</script></svg>`;
const storedPages = {
    "evil.html": page(active),
    "evil.htm": page(active),
    "evil.xhtml": xhtml,
    "evil.xml": xhtml,
    "evil.svg": svg,
    "evil.xsl": xhtml,
    "evil.rdf": xhtml,
    "evil.shtml": page(active),
    "evil.txt": page(active),
    "evil.bin": page(active),
    "evil": page(active),
    "evil.css": "body { background: url(evil.svg) }",
    "evil.js": script,
    "evil.mjs": script,
};

let browser;
before(async () => {
    browser = await chromium.launch({
        executablePath: browserPath,
        args: ["--no-sandbox", "--disable-gpu", "--disable-background-networking", "--disable-component-update", "--disable-sync", "--host-resolver-rules=MAP *.test 127.0.0.1"],
    });
});
after(() => browser?.close());

// A window whose pages tell when a script of theirs calls pwned().
async function openWindow(options = {}) {
    const context = await browser.newContext(options);
    const ran = [];
    await context.exposeBinding("pwned", ({ frame }) => ran.push(frame.url()));
    const tab = await context.newPage();
    tab.setDefaultTimeout(15_000);
    tab.on("dialog", (dialog) => {
        ran.push("dialog: " + dialog.message());
        dialog.dismiss();
    });
    return { context, tab, ran };
}

// Shows the page, presses what can be pressed in it, and leaves it a moment.
async function look(tab, url) {
    const reply = await tab.goto(url, { waitUntil: "load" }).catch((error) => {
        // What is saved instead of shown, or refused without a text, runs nothing.
        if (!/ERR_ABORTED|Download is starting|ERR_HTTP_RESPONSE_CODE_FAILURE/.test(error.message))
            throw error;
    });
    const press = () => document.querySelectorAll("#press, a[href^='javascript:']").forEach((found) => found.click());
    await tab.evaluate(press).catch(() => {}); // the page may have gone elsewhere by itself
    await new Promise((resolve) => setTimeout(resolve, 20));
    return reply;
}

describe("a server with hostile content", () => {
    let server;
    let files;
    before(async () => {
        server = await startServer();
        files = server.url + "files/";
        for (const [name, content] of Object.entries(storedPages))
            await server.write(name, content);
        await server.makeFolder("empty");
        for (const name of scriptNames)
            await server.write(name, active);
        for (const name of scriptNames.filter((each) => Buffer.byteLength(each) < 200)) {
            await server.makeFolder(name + " folder");
            await server.write(name + " folder/evil.js", script);
            await server.write(name + " folder/evil.html", storedPages["evil.html"]);
            await server.write(name + " folder/" + name, active);
        }
    });
    after(() => server.stop());

    // Opens each address with each kind of browser; nothing may run.
    async function runsNothing(addresses, agents = [undefined]) {
        for (const userAgent of agents) {
            const { context, tab, ran } = await openWindow({ userAgent });
            for (const address of addresses) {
                await look(tab, address);
                assert.deepEqual(ran, [], address);
                assert.ok(!existsSync(path.join(server.folder, "pwned-file")), address);
            }
            await context.close();
        }
    }
    const allKinds = [undefined, "Mozilla/4.8 [en] (X11)", "Blazer 4.0", "SomeBrowser/1.0"];
    const folders = () => scriptNames.filter((each) => Buffer.byteLength(each) < 200).map((name) => files + encodeURIComponent(name + " folder") + "/");

    it("shows hostile names in every kind of listing", () => runsNothing([files], allKinds));

    it("shows hostile names as data", () => runsNothing([files + ".index_xml", ...folders().map((url) => url + ".index_xml")]));

    it("shows folders with hostile names, in their path and title", () => runsNothing(folders()));

    it("takes hostile filters", () => {
        const empty = files + "empty/";
        return runsNothing(
            [...scriptNames.filter((_, i) => i % 4 === 0), "</xmp><script src=evil.js></script>", "%3Cscript src=evil.js%3E", "]]></filter><script src=evil.js></script>", '" autofocus onfocus="pwned()'].flatMap((text) => {
                const filter = "?filter=" + encodeURIComponent(text);
                return [empty + filter, empty + ".index_xml" + filter];
            })
        );
    });

    it("answers for what is not there", () => runsNothing([...scriptNames.filter((_, i) => i % 4 === 1).map((name) => files + "missing/" + encodeURIComponent(name) + "/"), files + "missing/.index_xml", new URL("/<script>pwned()<script>", files).href]));

    it("shows stored content without running it", async () => {
        await runsNothing([...Object.keys(storedPages), ...scriptNames.filter((_, i) => i % 4 === 2)].map((name) => files + encodeURIComponent(name)));
        await runsNothing(Object.keys(storedPages).map((name) => files + encodeURIComponent(scriptNames[0] + " folder") + "/../" + name + "?<script>pwned()</script>"));
    });

    it("answers uploads of hostile names", async () => {
        const { context, tab, ran } = await openWindow({ javaScriptEnabled: true });
        await tab.goto(files);
        for (const name of scriptNames) {
            const [answer] = await Promise.all([
                tab.waitForResponse((reply) => reply.request().method() === "POST"),
                tab.evaluate((name) => {
                    const frame = document.createElement("iframe");
                    frame.name = "result " + name.length;
                    const form = document.createElement("form");
                    form.method = "post";
                    form.enctype = "multipart/form-data";
                    form.target = frame.name;
                    const input = document.createElement("input");
                    input.type = "file";
                    input.name = "file";
                    const data = new DataTransfer();
                    data.items.add(new File(["x"], name));
                    input.files = data.files;
                    form.append(input);
                    document.body.append(frame, form);
                    form.submit();
                }, name),
            ]);
            assert.ok(answer.status() < 500, name);
            await answer.finished();
            assert.deepEqual(ran, [], name);
        }
        await tab.goto(files);
        assert.deepEqual(ran, []);
        await context.close();
    });

    it("shows hostile names among what was deleted", async () => {
        const { context, tab, ran } = await openWindow();
        for (const name of scriptNames)
            await context.request.delete(files + encodeURIComponent(name));
        await tab.goto(files);
        await tab.getByRole("button", { name: "Show deleted" }).click();
        await tab.locator("tr.deleted").first().waitFor();
        for (const address of [files, files + ".index_xml"]) {
            await look(tab, address);
            assert.deepEqual(ran, [], address);
        }
        assert.ok(!existsSync(path.join(server.folder, "pwned-file")));
        await context.close();
    });

    it("is not reached by a page of another site", async () => {
        // The page that refuses may not ask for anything; another site's own page may.
        const { context, tab } = await openWindow({ bypassCSP: true });
        const foreign = files.replace("127.0.0.1", foreignName);
        for (const address of [foreign, foreign + "evil.txt", new URL("/", foreign).href]) {
            const reply = await tab.goto(address);
            assert.equal(reply.status(), 421, address);
        }
        const statuses = await tab.evaluate(async (url) => {
            const ask = async (method) => (await fetch(url + "evil.txt", { method })).status;
            return [await ask("GET"), await ask("PROPFIND"), await ask("DELETE")];
        }, foreign);
        assert.deepEqual(statuses, [421, 421, 421]);
        assert.ok(existsSync(path.join(server.folder, "evil.txt")));
        await context.close();
    });
});

describe("the shipped scripts and what is stored", () => {
    const pixel = Buffer.from("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==", "base64");

    // One second of silence.
    function wave() {
        const head = Buffer.alloc(44);
        head.write("RIFF\x24\x1f\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0", 0, "latin1");
        head.writeUInt32LE(8000, 24);
        head.writeUInt32LE(8000, 28);
        head.write("\x01\0\x08\0data", 32, "latin1");
        head.writeUInt32LE(8000, 40);
        return Buffer.concat([head, Buffer.alloc(8000, 128)]);
    }

    for (const [what, options, rename] of [
        ["an address", ["--listen", "127.0.0.1:0"], (url) => url],
        ["localhost", ["--listen", "127.0.0.1:0"], (url) => url.replace("127.0.0.1", "localhost")],
        ["an IPv6 address", ["--listen", "[::1]:0"], (url) => url],
        ["a name, behind a password", ["--listen", "127.0.0.1:0", "--user", "anna:secret"], (url) => url.replace("127.0.0.1", "files.test")],
    ])
        it(`work under ${what}`, async () => {
            const server = await startServer(options);
            const { context, tab } = await openWindow({ httpCredentials: { username: "anna", password: "secret" } });
            await server.write("one.txt", "1");
            await tab.goto(rename(server.url) + "files/");
            await tab.locator("tr.entry").getByRole("button", { name: "Delete" }).waitFor();
            await context.close();
            await server.stop();
        });

    it("shows images, sound and documents that are stored", async () => {
        const server = await startServer();
        const { context, tab } = await openWindow();
        await server.write("dot.png", pixel);
        await server.write("drawing.svg", '<svg xmlns="http://www.w3.org/2000/svg" width="7" height="7"><rect width="7" height="7"/></svg>');
        await server.write("silence.wav", wave());
        await server.write("text.txt", "plain words");
        await server.write("page.html", page("<p>stored words</p>"));
        await server.write("paper.pdf", "%PDF-1.4\n%%EOF\n");
        await server.write("raw.bin", Buffer.alloc(1000, 7));
        const files = server.url + "files/";
        await tab.goto(files + "dot.png");
        assert.equal(await tab.locator("img").evaluate((image) => image.naturalWidth), 1);
        await tab.goto(files + "drawing.svg");
        assert.equal(await tab.locator("rect").count(), 1);
        await tab.goto(files + "silence.wav");
        const canPlay = () => tab.evaluate(() => document.querySelector("video, audio").readyState >= 1);
        for (let tries = 0; tries < 500 && !(await canPlay()); tries++)
            await new Promise((resolve) => setTimeout(resolve, 20));
        assert.ok(await canPlay());
        await tab.goto(files + "text.txt");
        assert.match(await tab.locator("body").textContent(), /plain words/);
        await tab.goto(files + "page.html");
        assert.match(await tab.locator("body").textContent(), /stored words/);
        // A browser's viewer shows no document that is sandboxed.
        const paper = await context.request.get(files + "paper.pdf");
        assert.equal(paper.headers()["content-type"], "application/pdf");
        assert.equal(paper.headers()["content-security-policy"], undefined);
        await tab.goto(files);
        const saved = tab.waitForEvent("download");
        await tab.locator("tr.entry").filter({ hasText: "raw.bin" }).locator("a.open").click();
        assert.equal(await (await saved).failure(), null);
        await context.close();
        await server.stop();
    });
});
