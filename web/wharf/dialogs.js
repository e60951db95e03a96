// Questions and previews. Every text goes in as text, never as markup.
import { fill, reason, send } from "./dav.js";

const texts = globalThis.messages;
const kPreviewBytes = 64 * 1024;

function element(name, properties = {}, ...children) {
    const node = Object.assign(document.createElement(name), properties);
    node.append(...children);
    return node;
}

let titles = 0;
// Shows a dialog and resolves with its return value when it closes.
function show(className, title, ...children) {
    const heading = element("h2", { id: "dialog-title-" + ++titles, textContent: title });
    const dialog = element("dialog", { className }, heading, ...children);
    dialog.setAttribute("aria-labelledby", heading.id);
    document.body.append(dialog);
    dialog.showModal();
    return new Promise((resolve) =>
        dialog.addEventListener("close", () => {
            dialog.remove();
            resolve(dialog.returnValue);
        })
    );
}

function buttons(okText, okClass) {
    const cancel = element("button", { type: "submit", value: "", textContent: texts.cancel, formNoValidate: true });
    const ok = element("button", { type: "submit", value: "ok", textContent: okText, className: okClass });
    return element("div", { className: "buttons" }, cancel, ok);
}

// Asks for a name; null when the person thought better of it.
export async function ask(question, value) {
    const field = element("input", { type: "text", value, required: true, autocomplete: "off" });
    field.setAttribute("aria-label", question);
    field.setAttribute("dir", "auto");
    const row = buttons(texts.ok, "primary");
    row.append(...[...row.children].reverse()); // Enter takes the first submit button
    const form = element("form", { method: "dialog" }, field, row);
    const closed = show("", question, form);
    const dot = value.lastIndexOf(".");
    field.focus();
    field.setSelectionRange(0, dot > 0 ? dot : value.length);
    return (await closed) === "ok" ? field.value : null;
}

export async function confirmBox(question, okText, okClass) {
    const form = element("form", { method: "dialog" }, buttons(okText, okClass));
    return (await show("", question, form)) === "ok";
}

export function help() {
    const rows = [
        ["\u2191 \u2193", texts.keyMove],
        ["Enter", texts.keyOpen],
        ["Space", texts.keyPreview],
        ["F2", texts.keyRename],
        ["Del", texts.keyRemove],
        ["/", texts.keyFilter],
        ["u", texts.keyUpload],
        ["n", texts.keyFolder],
        ["\u232b", texts.keyUp],
        ["?", texts.keyHelp],
    ].flatMap(([key, text]) => [element("dt", {}, element("kbd", { textContent: key })), element("dd", { textContent: text })]);
    const close = element("button", { type: "submit", textContent: texts.close });
    const form = element("form", { method: "dialog" }, element("dl", { className: "keys" }, ...rows), element("div", { className: "buttons" }, close));
    return show("", texts.help, form);
}

// Shows an image, or the beginning of a text.
export function previewBox({ name, url, type }) {
    const box = element("div", { className: "preview-body", tabIndex: 0 });
    box.setAttribute("role", "region");
    box.setAttribute("aria-label", fill(texts.preview, name));
    const close = element("button", { type: "submit", textContent: texts.close });
    const form = element("form", { method: "dialog" }, element("div", { className: "buttons" }, close));
    const closed = show("preview", name, box, form);
    if (type === "image")
        box.append(element("img", { src: url, alt: name }));
    else
        showText(box, url);
    return closed;
}

async function showText(box, url) {
    const text = element("pre", {});
    text.setAttribute("dir", "auto");
    box.append(text);
    try {
        const reply = await send("GET", url, { headers: { Range: `bytes=0-${kPreviewBytes - 1}` } });
        const bytes = (await reply.arrayBuffer()).slice(0, kPreviewBytes);
        text.textContent = new TextDecoder().decode(bytes);
        const size = parseInt((reply.headers.get("Content-Range") || "").split("/")[1], 10);
        if (size > kPreviewBytes)
            box.append(element("p", { className: "count", textContent: texts.truncated }));
    } catch (error) {
        text.textContent = reason(error);
    }
}
