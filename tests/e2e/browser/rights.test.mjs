// The file page offers only what the access rules allow.
import assert from "node:assert/strict";
import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before, describe, it } from "node:test";
import { isDeepStrictEqual } from "node:util";
import { chromium } from "playwright-core";
import { startServer } from "./server.mjs";

const browserPath = process.env.CHROMIUM || "/usr/bin/chromium";

// name of the rule: [path, rights]
const rules = {
    reader: ["/files/reader", ["list", "read"]],
    drop: ["/files/drop", ["list", "create"]],
    keeper: ["/files/keeper", ["list", "read", "create", "change"]],
    mixed: ["/files/mixed", ["list", "read"]],
    own: ["/files/mixed/own.txt", ["list", "read", "create", "change", "delete"]],
};

function configuration() {
    return Object.entries(rules)
        .map(([name, [where, rights]]) => `['Kest\\Configuration\\Access\\Rules\\${name}']\n'Who' = ['everybody']\n'Path' = '${where}'\n'Rights' = ${JSON.stringify(rights)}\n`)
        .join("");
}

describe("a page of a folder with rules", () => {
    let home;
    let server;
    let browser;
    let page;

    before(async () => {
        home = await mkdtemp(path.join(tmpdir(), "kest-rights-"));
        await writeFile(path.join(home, "kest.toml"), configuration());
        server = await startServer(["--listen", "127.0.0.1:0", "--config", path.join(home, "kest.toml")]);
        for (const folder of ["open", "reader", "drop", "keeper", "mixed"]) {
            await server.makeFolder(folder);
            await server.write(`${folder}/file.txt`, "content");
        }
        await server.write("mixed/own.txt", "content");
        browser = await chromium.launch({ executablePath: browserPath, args: ["--no-sandbox", "--disable-gpu"] });
        page = await (await browser.newContext()).newPage();
        page.setDefaultTimeout(15_000);
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
        await rm(home, { recursive: true, force: true });
    });

    const shown = (selector) => page.locator(selector).isVisible();
    const row = (name) => page.locator("tr.entry").filter({ hasText: name });
    async function come(folder, name) {
        await page.goto(server.url + "files/" + folder + "/");
        await row(name).locator("a.open").focus();
    }
    async function offered(name) {
        return {
            upload: await shown("#upload"),
            newFolder: await shown("#new-folder"),
            rename: await row(name).locator('[data-action="rename"]').isVisible(),
            remove: await row(name).locator('[data-action="remove"]').isVisible(),
        };
    }

    for (const [folder, name, expected] of [
        ["open", "file.txt", { upload: true, newFolder: true, rename: true, remove: true }],
        ["reader", "file.txt", { upload: false, newFolder: false, rename: false, remove: false }],
        ["drop", "file.txt", { upload: true, newFolder: true, rename: false, remove: false }],
        ["keeper", "file.txt", { upload: true, newFolder: true, rename: false, remove: false }],
        ["mixed", "file.txt", { upload: false, newFolder: false, rename: false, remove: false }],
        ["mixed", "own.txt", { upload: false, newFolder: false, rename: false, remove: true }],
    ])
        it(`offers in "${folder}" for ${name} what is allowed`, async () => {
            await come(folder, name);
            // The answers about the folder and the entry come in their time.
            for (let tries = 0; tries < 100 && !isDeepStrictEqual(await offered(name), expected); ++tries)
                await page.waitForTimeout(100);
            await page.waitForLoadState("networkidle");
            assert.deepEqual(await offered(name), expected);
        });

    it("takes no keys for what it does not offer", async () => {
        await come("reader", "file.txt");
        await row("file.txt").locator('[data-action="remove"]').waitFor({ state: "hidden" });
        await page.waitForLoadState("networkidle");
        for (const key of ["Delete", "F2", "n"]) {
            await page.keyboard.press(key);
            assert.equal(await page.locator("dialog[open]").count(), 0, key);
        }
    });
});
