// The file page. The server renders a plain table that works without this script; here it becomes
// a file manager: names are taken from inert text, links are built from them, and changes go out as
// WebDAV requests.
import { Uploads } from "./uploads.js";
import { ask, confirmBox, help, previewBox } from "./dialogs.js";
import { mayCreate, offerAllowed } from "./rights.js";
import { encodeName, fill, folderUrl, isValidName, reason, send } from "./dav.js";

const texts = globalThis.messages;
const body = document.body;
const pageSize = Math.max(1, parseInt(body.dataset.pageSize, 10) || 100);
const root = folderUrl(body.dataset.root || "/");
const here = folderUrl(location.pathname);
const isRoot = here === root;
const entries = document.getElementById("entries");
const notice = makeNotice();
const icons = new URL("icons.svg", import.meta.url).pathname; // beside this file, wherever it is published

start();

function start() {
    buildPath();
    buildToolbar();
    buildFilter();
    buildSorting();
    dress(document);
    document.addEventListener("keydown", onKey);
    window.addEventListener("popstate", () => refresh());
}

// -- Building the page from what the server rendered ----------------------------------------------

// Turns the rows of `source` (this document, or a freshly fetched one) into this page's rows.
function dress(source) {
    const rows = [...source.querySelectorAll("#entries > tr.entry")].map((row) => document.adoptNode(row));
    const failure = source.querySelector(".error");
    entries.replaceChildren(...rows);
    rows.forEach(dressRow);
    body.dataset.toggleDeleted = source.body.dataset.toggleDeleted;
    const total = parseInt(source.getElementById("count").dataset.total, 10) || 0;
    showTotals(total, rows.length, failure);
    showPages(total);
    showDeletedButton();
    showSorting(rows);
    document.getElementById("list").hidden = rows.length === 0;
    if (!isRoot)
        offerAllowed(here, rows);
}

// The name comes from the text of an element whose content is never parsed as markup.
function dressRow(row) {
    const inert = row.querySelector(".name");
    const name = inert.textContent;
    const isFolder = row.dataset.folder === "true";
    const isDeleted = row.dataset.deleted !== "0";
    const link = row.querySelector("a.open");
    const label = document.createElement("bdi");
    label.className = "name";
    label.textContent = name;
    inert.replaceWith(label);
    row.querySelector("use")?.setAttribute("href", icons + "#" + row.dataset.type);
    row.classList.toggle("deleted", isDeleted);
    const url = isDeleted ? link.getAttribute("href") : here + encodeName(name) + (isFolder ? "/" : "");
    link.href = url;
    row.entry = { name, isFolder, isDeleted, url, type: row.dataset.type };
    for (const time of row.querySelectorAll("time"))
        showTime(time);
    row.querySelector(".col-actions").replaceChildren(...actionsFor(row));
}

function showTime(element) {
    const when = new Date(element.dateTime);
    if (Number.isNaN(when.getTime()))
        return;
    element.textContent = when.toLocaleString(undefined, { dateStyle: "medium", timeStyle: "short" });
    element.title = when.toISOString();
}

function actionsFor(row) {
    const { isFolder, isDeleted, type } = row.entry;
    if (isDeleted)
        return [action("undo", texts.restore, row, restore)];
    const list = [];
    if (!isFolder && canPreview(row))
        list.push(action("eye", texts.preview, row, preview));
    list.push(action("link", texts.copyLink, row, copyLink));
    if (!isRoot) {
        list.push(action("pen", texts.rename, row, rename));
        list.push(action("bin", texts.remove, row, remove));
    }
    return list;
}

function action(icon, label, row, run) {
    const button = document.createElement("button");
    button.type = "button";
    button.dataset.action = run.name;
    button.setAttribute("aria-label", fill(label, row.entry.name));
    button.title = button.getAttribute("aria-label");
    const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
    svg.setAttribute("class", "icon");
    svg.setAttribute("aria-hidden", "true");
    const use = document.createElementNS("http://www.w3.org/2000/svg", "use");
    use.setAttribute("href", icons + "#" + icon);
    svg.append(use);
    button.append(svg);
    button.addEventListener("click", () => run(row));
    return button;
}

function buildPath() {
    const list = document.getElementById("path");
    const steps = [{ text: texts.root, url: root }];
    let url = root;
    for (const part of here.slice(root.length).split("/").filter(Boolean)) {
        url += part + "/";
        steps.push({ text: decodePart(part), url });
    }
    list.replaceChildren(
        ...steps.map(({ text, url }, i) => {
            const item = document.createElement("li");
            const link = document.createElement("a");
            const label = document.createElement("bdi");
            label.textContent = text;
            link.append(label);
            link.href = url;
            if (i === steps.length - 1)
                link.setAttribute("aria-current", "page");
            item.append(link);
            return item;
        })
    );
    document.title = steps[steps.length - 1].text;
}

function decodePart(part) {
    try {
        return decodeURIComponent(part);
    } catch {
        return part;
    }
}

function buildToolbar() {
    if (isRoot)
        return;
    const toolbar = document.getElementById("toolbar");
    const picker = document.createElement("input");
    picker.type = "file";
    picker.multiple = true;
    picker.hidden = true;
    picker.id = "picker";
    const uploads = new Uploads({ folder: here, exists, onDone: () => refresh() });
    picker.addEventListener("change", () => {
        uploads.add([...picker.files]);
        picker.value = "";
    });
    const upload = toolButton("upload", texts.upload, () => picker.click());
    upload.classList.add("primary");
    toolbar.prepend(upload, toolButton("new-folder", texts.newFolder, newFolder), picker);
    toolbar.append(toolButton("help", "?", help, texts.help));
    acceptDrops(uploads);
}

function toolButton(id, text, run, label) {
    const button = document.createElement("button");
    button.type = "button";
    button.id = id;
    button.textContent = text;
    if (label)
        button.setAttribute("aria-label", label);
    button.addEventListener("click", () => run());
    return button;
}

function acceptDrops(uploads) {
    let depth = 0; // dragenter and dragleave also come from children
    const mark = (on) => document.querySelector("main").classList.toggle("drop-target", on);
    const hasFiles = (event) => mayCreate() && [...event.dataTransfer.types].includes("Files");
    addEventListener("dragenter", (event) => hasFiles(event) && mark(++depth > 0));
    addEventListener("dragleave", (event) => hasFiles(event) && mark(--depth > 0));
    addEventListener("dragover", (event) => hasFiles(event) && event.preventDefault());
    addEventListener("drop", (event) => {
        if (!hasFiles(event))
            return;
        event.preventDefault();
        depth = 0;
        mark(false);
        uploads.add([...event.dataTransfer.files]);
    });
}

// -- Filter, pages, order -------------------------------------------------------------------------

// A filter is anchored at the start of the name and knows * and ?. What a person types is looked
// for anywhere in the name; characters that a filter cannot carry match as any one character.
function filterPattern(text) {
    const plain = text.replace(/[+&<#=]/g, "?");
    return /[*?]/.test(text) ? plain : "*" + plain;
}

function buildFilter() {
    const form = document.getElementById("filter");
    const field = document.getElementById("filter-text");
    const shown = new URLSearchParams(location.search).get("filter") || "";
    field.value = shown.startsWith("*") && !/[*?]/.test(shown.slice(1)) ? shown.slice(1) : shown;
    form.addEventListener("submit", (event) => {
        event.preventDefault();
        const text = field.value.trim();
        go(text ? "?filter=" + encodeURIComponent(filterPattern(text)) : "");
    });
}

function go(query) {
    history.pushState(null, "", here + query);
    return refresh();
}

function showTotals(total, shown, failure) {
    const empty = document.getElementById("empty");
    const count = document.getElementById("count");
    count.dataset.total = String(total);
    count.textContent = total === 1 ? texts.entry : fill(texts.entries, total.toLocaleString());
    count.hidden = shown === 0;
    empty.hidden = shown > 0;
    empty.classList.toggle("error", failure !== null);
    const filtered = new URLSearchParams(location.search).has("filter");
    empty.textContent = failure ? failure.textContent : filtered ? texts.emptyFilter : isRoot ? texts.emptyRoot : texts.empty;
}

function showPages(total) {
    const nav = document.getElementById("pages");
    const query = new URLSearchParams(location.search);
    const last = Math.ceil(total / pageSize);
    const current = Math.min(last, Math.floor((Math.max(1, parseInt(query.get("start"), 10) || 1) - 1) / pageSize) + 1);
    nav.replaceChildren();
    nav.hidden = last < 2;
    if (nav.hidden)
        return;
    const link = (page, text, label) => {
        const a = document.createElement("a");
        a.className = "button";
        const target = "?start=" + ((page - 1) * pageSize + 1);
        const filter = query.get("filter");
        a.href = here + target + (filter ? "&filter=" + encodeURIComponent(filter) : "");
        a.textContent = text;
        a.setAttribute("aria-label", label);
        if (page === current)
            a.setAttribute("aria-current", "page");
        a.addEventListener("click", (event) => {
            event.preventDefault();
            go(a.search);
        });
        nav.append(a);
    };
    if (current > 1)
        link(current - 1, "\u2039", texts.previous);
    let before = 0;
    for (let page = 1; page <= last; page++) {
        if (page !== 1 && page !== last && Math.abs(page - current) > 2)
            continue;
        if (page > before + 1)
            nav.append("\u2026");
        link(page, String(page), fill(texts.page, page));
        before = page;
    }
    if (current < last)
        link(current + 1, "\u203a", texts.next);
}

function buildSorting() {
    for (const form of document.querySelectorAll("thead form")) {
        const button = form.querySelector("button");
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            const key = button.value;
            const before = sortState();
            // The server flips the direction when the same key is asked for again.
            sessionStorage.setItem("sort", key + (before.key === key && before.up ? "-" : "+"));
            preference("Sort=" + key);
        });
    }
    document.getElementById("deleted").addEventListener("submit", (event) => {
        event.preventDefault();
        preference("ShowDeleted=" + body.dataset.toggleDeleted);
    });
}

function sortState() {
    const text = sessionStorage.getItem("sort") || "0+";
    return { key: text[0], up: text[1] === "+" };
}

// Headings tell the order. Folders come first in every ascending list and last in a descending one,
// which corrects what was remembered when another window changed the order.
function showSorting(rows) {
    const { key, up } = sortState();
    const first = rows.find((row) => !row.entry.isDeleted);
    const mixed = rows.some((row) => row.entry.isFolder) && rows.some((row) => !row.entry.isFolder);
    const ascending = mixed && first ? first.entry.isFolder : up;
    sessionStorage.setItem("sort", key + (ascending ? "+" : "-"));
    for (const heading of document.querySelectorAll("thead th")) {
        const button = heading.querySelector("button");
        if (button && button.value === key)
            heading.setAttribute("aria-sort", ascending ? "ascending" : "descending");
        else
            heading.removeAttribute("aria-sort");
    }
}

function showDeletedButton() {
    const button = document.querySelector("#deleted button");
    button.textContent = body.dataset.toggleDeleted === "1" ? texts.showDeleted : texts.hideDeleted;
    button.value = body.dataset.toggleDeleted;
    document.getElementById("deleted").hidden = isRoot;
}

// A preference is a form of one field; the reply is the page in its new order.
async function preference(form) {
    await replaceWith(
        send("POST", here + location.search, {
            headers: { "Content-Type": "application/x-www-form-urlencoded" },
            body: form,
        })
    );
}

async function refresh() {
    await replaceWith(send("GET", here + location.search, { headers: { Accept: "text/html" } }));
}

async function replaceWith(reply) {
    try {
        const page = new DOMParser().parseFromString(await (await reply).text(), "text/html");
        if (!page.getElementById("count"))
            throw new Error(texts.network);
        const name = document.activeElement?.closest("tr.entry")?.entry.name;
        dress(page);
        focusEntry(name);
    } catch (error) {
        say(reason(error));
    }
}

// -- Actions --------------------------------------------------------------------------------------

async function newFolder() {
    const name = await ask(texts.folderNamePrompt, "");
    if (name === null)
        return;
    if (!isValidName(name))
        return say(texts.badName);
    await change(() => send("MKCOL", here + encodeName(name) + "/"), fill(texts.created, name), name);
}

async function rename(row) {
    const { name, url, isFolder } = row.entry;
    const wanted = await ask(fill(texts.renamePrompt, name), name);
    if (wanted === null || wanted === name)
        return focusEntry(name);
    if (!isValidName(wanted))
        return say(texts.badName);
    await change(() => move(url, here + encodeName(wanted) + (isFolder ? "/" : "")), fill(texts.renamed, wanted), wanted);
}

async function remove(row) {
    const { name, url, isFolder } = row.entry;
    const question = fill(isFolder ? texts.removeFolderPrompt : texts.removePrompt, name);
    if (!(await confirmBox(question, texts.removeButton, "danger")))
        return focusEntry(name);
    await change(() => send("DELETE", url), fill(texts.removed, name));
}

async function restore(row) {
    const { name, url } = row.entry;
    await change(() => move(url, here + encodeName(name)), fill(texts.restored, name), name);
}

function move(from, to) {
    return send("MOVE", from, { headers: { Destination: new URL(to, location.href).href, Overwrite: "F" } });
}

async function copyLink(row) {
    try {
        await navigator.clipboard.writeText(new URL(row.entry.url, location.href).href);
        say(texts.linkCopied);
    } catch {
        say(texts.linkNotCopied);
    }
}

function canPreview(row) {
    return ["image", "text", "code"].includes(row.entry.type);
}

function preview(row) {
    return previewBox(row.entry).then(() => focusEntry(row.entry.name));
}

async function exists(name) {
    try {
        await send("HEAD", here + encodeName(name));
        return true;
    } catch (error) {
        if (error.status === 404)
            return false;
        throw error;
    }
}

async function change(run, done, focus) {
    try {
        await run();
        say(done);
    } catch (error) {
        say(reason(error));
    }
    await refresh();
    focusEntry(focus);
}

// -- Keyboard and messages ------------------------------------------------------------------------

// Moves the keyboard to an entry, but never out of a field or dialog that the person has gone to since.
function focusEntry(name) {
    if (name === undefined || document.activeElement?.closest("input, textarea, dialog"))
        return;
    for (const row of entries.children)
        if (row.entry.name === name)
            return row.querySelector("a.open").focus();
}

function onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || document.querySelector("dialog[open]"))
        return;
    if (event.target.closest("input, textarea, select"))
        return;
    const row = document.activeElement?.closest("tr.entry");
    const run = (row && rowKeys[event.key]) || pageKeys[event.key];
    if (!run)
        return;
    if (run(row) !== false)
        event.preventDefault();
}

function press(row, name) {
    const button = row.querySelector(`[data-action="${name}"]:not([hidden])`);
    if (!button)
        return false;
    button.click();
}

const rowKeys = {
    F2: (row) => press(row, "rename"),
    Delete: (row) => press(row, "remove"),
    " ": (row) => press(row, "preview"),
};

const pageKeys = {
    ArrowDown: () => step(1),
    ArrowUp: () => step(-1),
    "/": () => document.getElementById("filter-text").focus(),
    u: () => document.querySelector("#upload:not([hidden])")?.click(),
    n: () => document.querySelector("#new-folder:not([hidden])")?.click(),
    "?": () => help(),
    Backspace: () => {
        const links = document.querySelectorAll("#path a");
        if (links.length < 2)
            return false;
        location.href = links[links.length - 2].href;
    },
};

function step(by) {
    const links = [...entries.querySelectorAll("a.open")];
    if (links.length === 0)
        return false;
    const at = links.indexOf(document.activeElement?.closest("tr.entry")?.querySelector("a.open"));
    const to = at < 0 ? (by > 0 ? 0 : links.length - 1) : Math.min(links.length - 1, Math.max(0, at + by));
    links[to].focus();
}

function makeNotice() {
    const element = document.createElement("div");
    element.className = "notice";
    element.setAttribute("role", "status");
    body.append(element);
    return element;
}

let noticeTimer = 0;
function say(text) {
    notice.textContent = text;
    clearTimeout(noticeTimer);
    noticeTimer = setTimeout(() => (notice.textContent = ""), 6000);
}
