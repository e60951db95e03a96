// The file page in a real browser, as people use it.
import assert from "node:assert/strict";
import { execFile } from "node:child_process";
import { createRequire } from "node:module";
import { existsSync } from "node:fs";
import { mkdir, readFile, rm } from "node:fs/promises";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";
import { after, before, beforeEach, describe, it } from "node:test";
import { chromium } from "playwright-core";
import { hostileNames, startServer } from "./server.mjs";

const axe = createRequire(import.meta.url).resolve("axe-core/axe.min.js");
const pictures = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../../artifacts");
const browserPath = process.env.CHROMIUM || "/usr/bin/chromium";
const onePixel = Buffer.from(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==",
    "base64"
);

let browser;
let server;
let context;
let page;
let violations; // what the browser refused under the content security policy, and script errors

before(async () => {
    await mkdir(pictures, { recursive: true });
    browser = await chromium.launch({
        executablePath: browserPath,
        args: ["--no-sandbox", "--disable-gpu", "--disable-background-networking", "--disable-component-update", "--disable-sync"],
    });
});
after(() => browser?.close());

async function open(options = {}) {
    await context?.close();
    context = await browser.newContext({ permissions: ["clipboard-read", "clipboard-write"], ...options });
    page = await context.newPage();
    page.setDefaultTimeout(15_000);
    violations = [];
    page.on("pageerror", (error) => violations.push(String(error)));
    page.on("console", (message) => message.type() === "error" && /Content Security|refused/i.test(message.text()) && violations.push(message.text()));
    page.on("dialog", (dialog) => {
        violations.push("dialog: " + dialog.message());
        dialog.dismiss();
    });
    await page.addInitScript(() => (window.pwned = () => document.documentElement.setAttribute("data-pwned", "yes")));
}

const folderUrl = () => server.url + "files/";
const names = () => page.locator("tr.entry .name").allTextContents();
const row = (name) => page.locator("tr.entry").filter({ has: page.locator(".name").getByText(name, { exact: true }) });
const noticed = (text) => page.locator(".notice").filter({ hasText: text }).waitFor();

async function harmless() {
    assert.equal(await page.locator("[data-pwned]").count(), 0, "a name became script");
    assert.deepEqual(violations, []);
}

describe("the file page", () => {
    before(async () => (server = await startServer()));
    after(async () => {
        await context?.close();
        context = undefined;
        await server.stop();
    });
    beforeEach(() => open());

    it("says what failed, and leads back", async () => {
        await server.write("kept.txt", "content");
        const reply = await page.goto(folderUrl() + "nothing%20here.txt");
        assert.equal(reply.status(), 404);
        assert.equal(await page.locator("h1").textContent(), "There is nothing under this name.");
        await page.getByText("Back to the folder").click();
        await row("kept.txt").waitFor();
        await page.goto(folderUrl() + "no/such/folder/");
        await page.getByText("One folder up").click();
        await page.getByText("One folder up").click();
        await page.getByText("One folder up").click();
        await row("kept.txt").waitFor();
        await rm(path.join(server.folder, "kept.txt")); // the next case counts what is there
        await harmless();
    });

    it("shows every hostile name as text and links to its content", async () => {
        for (const name of hostileNames)
            await server.write(name, "content of " + name);
        await page.goto(folderUrl());
        await page.locator("tr.entry").nth(hostileNames.length - 1).waitFor();
        assert.deepEqual(new Set(await names()), new Set(hostileNames));
        for (const name of hostileNames) {
            const href = await row(name).locator("a.open").evaluate((a) => a.href);
            const reply = await context.request.get(href);
            assert.equal(await reply.text(), "content of " + name, href);
        }
        await harmless();
    });

    it("links inside folders whose own names need escaping", async () => {
        const folder = "50% off & <b>more";
        await server.makeFolder(folder);
        await server.write(folder + "/in#side?.txt", "found");
        await page.goto(folderUrl());
        await row(folder).locator("a.open").click();
        await page.waitForURL(/50%25/);
        assert.deepEqual(await names(), ["in#side?.txt"]);
        assert.deepEqual(await page.locator("#path a").allTextContents(), ["All volumes", "files", folder]);
        const href = await row("in#side?.txt").locator("a.open").evaluate((a) => a.href);
        assert.equal(await (await context.request.get(href)).text(), "found");
        await page.locator("#path a").nth(1).click();
        await row(folder).waitFor();
        await harmless();
    });

    it("sorts by a clicked heading and turns round at the second click", async () => {
        await server.makeFolder("sorting");
        for (const [name, size] of [["b.txt", 10], ["a.txt", 3000], ["c.txt", 200]])
            await server.write("sorting/" + name, "x".repeat(size));
        await page.goto(folderUrl() + "sorting/");
        assert.deepEqual(await names(), ["a.txt", "b.txt", "c.txt"]);
        const size = page.getByRole("button", { name: "Size" });
        await size.click();
        await page.locator('th.col-size[aria-sort="ascending"]').waitFor();
        assert.deepEqual(await names(), ["b.txt", "c.txt", "a.txt"]);
        await size.click();
        await page.locator('th.col-size[aria-sort="descending"]').waitFor();
        assert.deepEqual(await names(), ["a.txt", "c.txt", "b.txt"]);
        await page.getByRole("button", { name: "Name", exact: true }).click();
        await page.locator('th.col-name[aria-sort="ascending"]').waitFor();
        assert.deepEqual(await names(), ["a.txt", "b.txt", "c.txt"]);
    });

    it("pages through a long folder and filters it", async () => {
        await server.makeFolder("long");
        for (let i = 1; i <= 250; i++)
            await server.write(`long/file ${String(i).padStart(3, "0")}.txt`, "");
        await page.goto(folderUrl() + "long/");
        assert.equal((await names()).length, 100);
        assert.match(await page.locator("#count").textContent(), /250 entries/);
        await page.getByRole("link", { name: "Page 3" }).click();
        await row("file 201.txt").waitFor();
        assert.equal((await names()).length, 50);
        await page.getByRole("link", { name: "Previous page" }).click();
        await row("file 101.txt").waitFor();
        await page.getByRole("searchbox").fill("24");
        await page.keyboard.press("Enter");
        await row("file 024.txt").waitFor();
        assert.deepEqual(await names(), ["file 024.txt", "file 124.txt", "file 224.txt", ...Array.from({ length: 10 }, (_, i) => `file 24${i}.txt`)]);
        await page.goBack();
        await row("file 101.txt").waitFor();
    });

    it("takes a filter from the address as text", async () => {
        for (const filter of ['"><img src=x onerror=pwned()>', "</xmp><script>pwned()</script>", "%3C/textarea%3E%3Cscript%3Epwned()%3C/script%3E"]) {
            await page.goto(folderUrl() + "?filter=" + encodeURIComponent(filter));
            await page.locator("#list, #empty").first().waitFor({ state: "attached" });
            await harmless();
        }
    });

    it("uploads several files by the button and shows their progress", async () => {
        await page.goto(folderUrl());
        await page.getByRole("button", { name: "Upload" }).waitFor();
        const big = Buffer.alloc(8 * 1024 * 1024, "z");
        await page.locator("#picker").setInputFiles([
            { name: "up one.txt", mimeType: "text/plain", buffer: Buffer.from("one") },
            { name: "up <two>.bin", mimeType: "application/octet-stream", buffer: big },
        ]);
        await page.locator(".uploads progress").nth(1).waitFor();
        await page.locator(".uploads li.done").nth(1).waitFor();
        await row("up <two>.bin").waitFor();
        assert.equal(await readFile(path.join(server.folder, "up one.txt"), "utf8"), "one");
        assert.ok((await readFile(path.join(server.folder, "up <two>.bin"))).equals(big));
        await harmless();
    });

    it("uploads dropped files and asks before it replaces one", async () => {
        await server.write("drop.txt", "old");
        await page.goto(folderUrl());
        await row("drop.txt").waitFor();
        const drop = async (text) => {
            const data = await page.evaluateHandle((text) => {
                const data = new DataTransfer();
                data.items.add(new File([text], "drop.txt"));
                return data;
            }, text);
            await page.dispatchEvent("main", "dragenter", { dataTransfer: data });
            await page.dispatchEvent("main", "drop", { dataTransfer: data });
        };
        await drop("new");
        await page.getByRole("dialog").getByRole("button", { name: "Cancel" }).click();
        assert.equal(await readFile(path.join(server.folder, "drop.txt"), "utf8"), "old");
        await drop("new");
        await page.getByRole("dialog").getByRole("button", { name: "Replace" }).click();
        await page.locator(".uploads li.done").waitFor();
        assert.equal(await readFile(path.join(server.folder, "drop.txt"), "utf8"), "new");
    });

    it("reports a failed upload and retries it", async () => {
        await page.goto(folderUrl());
        await page.getByRole("button", { name: "Upload" }).waitFor();
        let refusals = 1;
        await page.route("**/again.txt", (route) => (route.request().method() === "PUT" && refusals-- > 0 ? route.fulfill({ status: 507 }) : route.fallback()));
        await page.locator("#picker").setInputFiles([{ name: "again.txt", mimeType: "text/plain", buffer: Buffer.from("second time") }]);
        const item = page.locator(".uploads li");
        await item.getByText("There is no room left on the server.").waitFor();
        await item.getByRole("button", { name: "Retry" }).click();
        await page.locator(".uploads li.done").waitFor();
        assert.equal(await readFile(path.join(server.folder, "again.txt"), "utf8"), "second time");
    });

    it("makes, renames, deletes and restores", async () => {
        await page.goto(folderUrl());
        await page.getByRole("button", { name: "New folder" }).click();
        await page.getByRole("dialog").getByRole("textbox").fill("made <here> & now");
        await page.keyboard.press("Enter");
        await noticed("created");
        assert.ok(existsSync(path.join(server.folder, "made <here> & now")));

        await row("made <here> & now").getByRole("button", { name: "Rename" }).click();
        await page.getByRole("dialog").getByRole("textbox").fill("renamed #1");
        await page.keyboard.press("Enter");
        await noticed("Renamed to");
        await row("renamed #1").waitFor();
        assert.ok(existsSync(path.join(server.folder, "renamed #1")));

        await server.write("gone & back.txt", "still here");
        await page.reload();
        await row("gone & back.txt").getByRole("button", { name: "Delete" }).click();
        await page.getByRole("dialog").getByRole("button", { name: "Delete" }).click();
        await noticed("deleted");
        await row("gone & back.txt").waitFor({ state: "detached" });
        assert.ok(!existsSync(path.join(server.folder, "gone & back.txt")));

        await page.getByRole("button", { name: "Show deleted" }).click();
        await page.locator("tr.deleted").first().waitFor();
        await row("gone & back.txt").getByRole("button", { name: "Restore" }).click();
        await noticed("restored");
        assert.equal(await readFile(path.join(server.folder, "gone & back.txt"), "utf8"), "still here");
        await page.getByRole("button", { name: "Hide deleted" }).click();
        await page.getByRole("button", { name: "Show deleted" }).waitFor();
        await harmless();
    });

    it("refuses to rename onto an existing name", async () => {
        await server.write("first.txt", "1");
        await server.write("second.txt", "2");
        await page.goto(folderUrl());
        await row("first.txt").getByRole("button", { name: "Rename" }).click();
        await page.getByRole("dialog").getByRole("textbox").fill("second.txt");
        await page.keyboard.press("Enter");
        await noticed("exists already");
        assert.equal(await readFile(path.join(server.folder, "second.txt"), "utf8"), "2");
    });

    it("previews texts and images and copies links", async () => {
        await server.write("note.md", "# <b>not bold</b>\n" + "line\n".repeat(20_000));
        await server.write("dot.png", onePixel);
        await page.goto(folderUrl());
        await row("note.md").getByRole("button", { name: "Preview" }).click();
        await page.getByRole("dialog").getByText("<b>not bold</b>").waitFor();
        await page.getByText("Only the beginning is shown.").waitFor();
        await page.keyboard.press("Escape");
        await row("dot.png").getByRole("button", { name: "Preview" }).click();
        await page.waitForFunction(() => document.querySelector("dialog img")?.naturalWidth === 1);
        await page.keyboard.press("Escape");
        await row("dot.png").getByRole("button", { name: "Copy the link" }).click();
        await noticed("Link copied");
        assert.equal(await page.evaluate(() => navigator.clipboard.readText()), folderUrl() + "dot.png");
        await harmless();
    });

    it("works from the keyboard", async () => {
        await server.makeFolder("keys");
        await server.write("keys/one.txt", "1");
        await server.write("keys/two.txt", "2");
        await page.goto(folderUrl() + "keys/");
        await row("one.txt").waitFor();
        await page.keyboard.press("ArrowDown");
        await page.keyboard.press("ArrowDown");
        await page.keyboard.press("F2");
        await page.getByRole("dialog").getByRole("textbox").fill("three.txt");
        await page.keyboard.press("Enter");
        await row("three.txt").locator("a.open:focus").waitFor();
        await page.keyboard.press("Delete");
        await page.getByRole("dialog").waitFor();
        await page.keyboard.press("Escape");
        await page.keyboard.press("/");
        assert.equal(await page.evaluate(() => document.activeElement.id), "filter-text");
        assert.deepEqual(await names(), ["one.txt", "three.txt"]);
    });

    it("leaves the keyboard in the field that was gone to while a dialog closed", async () => {
        await server.makeFolder("focus");
        await server.write("focus/one.txt", "1");
        await page.goto(folderUrl() + "focus/");
        await row("one.txt").locator("a.open").focus();
        await page.keyboard.press("Delete");
        await page.getByRole("dialog").waitFor();
        // Both in one step, before the page hears that the dialog has closed.
        await page.evaluate(() => {
            document.querySelector("dialog").close();
            document.getElementById("filter-text").focus();
        });
        await page.getByRole("dialog").waitFor({ state: "detached" });
        assert.equal(await page.evaluate(() => document.activeElement.id), "filter-text");
    });

    it("has no serious accessibility findings, light, dark and narrow", async () => {
        for (const options of [{}, { colorScheme: "dark" }, { viewport: { width: 390, height: 844 } }]) {
            await open(options);
            await page.goto(folderUrl());
            await page.locator("tr.entry").first().waitFor();
            // The policy of the page forbids foreign scripts, so the checker comes in by the debugger.
            const source = await readFile(axe, "utf8");
            await page.evaluate(source);
            const result = await page.evaluate(() => window.axe.run(document));
            const serious = result.violations.filter((v) => ["serious", "critical"].includes(v.impact));
            assert.deepEqual(serious.map((v) => [v.id, v.nodes.map((n) => n.html).slice(0, 3)]), []);
        }
    });

    it("fits a phone without scrolling sideways", async () => {
        await open({ viewport: { width: 390, height: 844 }, deviceScaleFactor: 2, colorScheme: "dark" });
        await page.goto(folderUrl());
        await page.locator("tr.entry").first().waitFor();
        const overflow = await page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
        assert.ok(overflow <= 0, `wider than the screen by ${overflow} pixels`);
        await page.screenshot({ path: path.join(pictures, "phone-dark.png") });
    });
});

describe("the pages without scripts", () => {
    before(async () => {
        server = await startServer();
        for (const name of hostileNames)
            await server.write(name, "content of " + name);
        await server.makeFolder("50% off");
        await server.write("50% off/100% sure.txt", "sure");
    });
    after(async () => {
        await context?.close();
        context = undefined;
        await server.stop();
    });

    // Follows the links as they stand in the page, as a browser without scripts does.
    async function checkLinks(url, wanted) {
        await page.goto(url);
        const links = await page.locator("a:has(xmp)").evaluateAll((all) => all.map((a) => [a.textContent.trim(), a.href]));
        for (const [name, content] of wanted) {
            const link = links.find(([text]) => text === name);
            assert.ok(link, name + " is not listed");
            const reply = await context.request.get(link[1]);
            assert.equal(await reply.text(), content, link[1]);
        }
    }

    for (const [kind, userAgent] of [
        ["newer", undefined],
        ["older", "Mozilla/4.8 [en] (X11)"],
        ["small", "Blazer 4.0"],
        ["text", "SomeBrowser/1.0"],
    ])
        it(`lists and links every name for a ${kind} browser`, async () => {
            await open({ javaScriptEnabled: false, userAgent });
            // Browsers turn a backslash in a link into a slash; only a script can escape it.
            const whole = hostileNames.filter((name) => !name.includes("\\") && (kind !== "small" || Buffer.byteLength(name) <= 24));
            await checkLinks(folderUrl(), whole.map((name) => [name, "content of " + name]));
            await checkLinks(folderUrl() + encodeURIComponent("50% off") + "/", [["100% sure.txt", "sure"]]);
            await harmless();
        });

    it("uploads by the plain form", async () => {
        await open({ javaScriptEnabled: false });
        await page.goto(folderUrl());
        await page.locator('input[type="file"]').setInputFiles([{ name: "plain form.txt", mimeType: "text/plain", buffer: Buffer.from("by form") }]);
        const done = page.waitForResponse((reply) => reply.request().method() === "POST");
        await page.getByRole("button", { name: "Upload" }).click();
        assert.equal((await done).status(), 200);
        await (await done).finished();
        assert.equal(await readFile(path.join(server.folder, "plain form.txt"), "utf8"), "by form");
    });

    it("keeps the XML page well-formed whatever the names", async () => {
        await open();
        await page.goto(server.url);
        const parsed = await page.evaluate(async (url) => {
            const text = await (await fetch(url)).text();
            const xml = new DOMParser().parseFromString(text, "application/xml");
            const failure = xml.querySelector("parsererror")?.textContent;
            return { failure, urls: [...xml.querySelectorAll("entry > url")].map((e) => e.textContent), total: xml.querySelector("total")?.textContent };
        }, folderUrl() + ".index_xml");
        assert.equal(parsed.failure, undefined);
        assert.equal(Number(parsed.total), parsed.urls.length);
        const shown = parsed.urls.map((url) => decodeURIComponent(url.slice(url.lastIndexOf("/") + 1)).replaceAll("\\\\", "\\"));
        for (const name of hostileNames)
            assert.ok(shown.includes(name), name);
    });

    it("reads well in a text browser", async () => {
        const { stdout } = await promisify(execFile)("w3m", ["-dump", "-cols", "200", folderUrl()]);
        for (const name of ["100%.txt", "what?.txt", "a&b &amp; c.txt", "emoji \u{1F600}"])
            assert.ok(stdout.includes(name), name + " is not shown in:\n" + stdout);
        assert.match(stdout, /Parent folder/);
        assert.match(stdout, /entries/);
    });
});

describe("pictures for the documentation", () => {
    before(async () => {
        server = await startServer();
        for (const folder of ["Photos", "Projects", "Reports 2026"])
            await server.makeFolder(folder);
        for (const [name, size] of [["Budget.ods", 48_200], ["Minutes of the meeting.md", 3_100], ["Presentation.odp", 2_400_000], ["backup.tar.gz", 9_800_000], ["logo.svg", 4_700], ["main.cpp", 12_000], ["\u05E9\u05DC\u05D5\u05DD.txt", 700], ["holiday.jpg", 3_300_000]])
            await server.write(name, Buffer.alloc(size, "."));
    });
    after(async () => {
        await context?.close();
        context = undefined;
        await server.stop();
    });

    for (const colorScheme of ["light", "dark"])
        it(`shows a ${colorScheme} folder`, async () => {
            await open({ colorScheme, viewport: { width: 1100, height: 720 } });
            await page.goto(folderUrl());
            await row("main.cpp").hover();
            await page.screenshot({ path: path.join(pictures, `index-${colorScheme}.png`) });
            assert.equal((await names()).length, 11);
        });
});
