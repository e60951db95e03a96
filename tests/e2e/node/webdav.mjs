// Tries the package "webdav" with its own settings: webdav.mjs URL SOURCE TARGET. Prints "done".
import assert from "node:assert/strict";
import { once } from "node:events";
import { readFile, writeFile } from "node:fs/promises";
import { createClient } from "webdav";

const [url, source, target] = process.argv.slice(2);
const client = createClient(url);
const content = await readFile(source);
const day = 24 * 3600 * 1000;

async function collected(stream) {
    const parts = [];
    for await (const part of stream) {
        parts.push(part);
    }
    return Buffer.concat(parts);
}

async function statusOf(promise) {
    try {
        await promise;
    } catch (error) {
        return error.status;
    }
    return 0;
}

async function storesAndReads() {
    await client.createDirectory("/nw/deep/er", { recursive: true });
    assert.equal(await client.putFileContents("/nw/one", content), true);
    assert.equal(await client.putFileContents("/nw/one", "x", { overwrite: false }), false);
    assert.deepEqual(await client.getFileContents("/nw/one"), content);
    const out = client.createWriteStream("/nw/deep/er/two words & <more>");
    out.end(content);
    await once(out, "finish");
    for (let i = 0; !(await client.exists("/nw/deep/er/two words & <more>")); i++) {
        assert.ok(i < 600, "the streamed file does not come");
        await new Promise((done) => setTimeout(done, 100));
    }
    const part = client.createReadStream("/nw/one", { range: { start: 1000, end: 1999 } });
    assert.deepEqual(await collected(part), content.subarray(1000, 2000));
    await client.putFileContents("/nw/empty", "");
    await writeFile(target, await client.getFileContents("/nw/deep/er/two words & <more>"));
}

async function listsWithDatesAndSizes() {
    const found = await client.getDirectoryContents("/nw", { deep: true });
    const names = found.map((entry) => entry.filename).sort();
    assert.deepEqual(names, ["/nw/deep", "/nw/deep/er", "/nw/deep/er/two words & <more>",
        "/nw/empty", "/nw/one"]);
    for (const entry of found) {
        assert.ok(Math.abs(new Date(entry.lastmod) - Date.now()) < day, entry.lastmod);
    }
    const one = await client.stat("/nw/one");
    assert.deepEqual([one.type, one.size, one.mime], ["file", content.length,
        "application/octet-stream"]);
    assert.ok(one.etag.length > 0);
    const empty = await client.stat("/nw/empty");
    assert.deepEqual([empty.type, empty.size], ["file", 0]);
    assert.equal((await client.stat("/nw/deep")).type, "directory");
    const quota = await client.getQuota();
    assert.ok(quota.available > 0 && quota.used >= 0, JSON.stringify(quota));
}

async function changesParts() {
    await client.putFileContents("/nw/part", "0123456789");
    await client.partialUpdateFileContents("/nw/part", 3, 5, "abc");
    assert.equal(await client.getFileContents("/nw/part", { format: "text" }), "012abc6789");
}

async function copiesMovesLocksDeletes() {
    await client.copyFile("/nw/deep", "/nw/deep2");
    await client.moveFile("/nw/one", "/nw/moved");
    assert.deepEqual(await client.getFileContents("/nw/moved"), content);
    assert.equal(await statusOf(client.copyFile("/nw/moved", "/nw/part", { overwrite: false })), 412);
    const held = await client.lock("/nw/moved");
    assert.match(held.token, /^[a-z]+:/);
    assert.equal(await statusOf(client.putFileContents("/nw/moved", "x")), 423);
    await client.putFileContents("/nw/moved", content, { headers: { If: `(<${held.token}>)` } });
    await client.unlock("/nw/moved", held.token);
    assert.deepEqual(await client.getFileContents("/nw/deep2/er/two words & <more>"), content);
    await client.deleteFile("/nw/moved");
    assert.equal(await client.exists("/nw/moved"), false);
    await client.deleteFile("/nw");
}

const compliance = (await client.getDAVCompliance("/")).compliance;
assert.ok(["1", "2", "3"].every((level) => compliance.includes(level)), compliance.join());
await storesAndReads();
await listsWithDatesAndSizes();
await changesParts();
await copiesMovesLocksDeletes();
console.log("done");
