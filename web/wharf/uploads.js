// Uploads with a progress bar each: a few at a time, cancelled and retried one by one.
import { RequestError, encodeName, fill, reason } from "./dav.js";
import { confirmBox } from "./dialogs.js";

const texts = globalThis.messages;
const kAtOnce = 3;

export class Uploads {
    // `exists(name)` tells whether the folder has an entry; `onDone` is called when all are through.
    constructor({ folder, exists, onDone }) {
        this.folder = folder;
        this.exists = exists;
        this.onDone = onDone;
        this.waiting = [];
        this.running = 0;
        this.panel = null;
        addEventListener("beforeunload", (event) => this.running > 0 && event.preventDefault());
    }

    async add(files) {
        for (const file of files) {
            let replace = false;
            try {
                replace = await this.exists(file.name);
            } catch {
                // The upload itself will tell what is wrong.
            }
            if (replace && !(await confirmBox(fill(texts.replacePrompt, file.name), texts.replace, "danger")))
                continue;
            this.queue(this.makeItem(file));
        }
    }

    queue(item) {
        item.state(texts.waiting, "");
        this.waiting.push(item);
        this.next();
    }

    next() {
        while (this.running < kAtOnce && this.waiting.length > 0)
            this.start(this.waiting.shift());
    }

    async start(item) {
        this.running++;
        try {
            await this.send(item);
            item.state(texts.done, "done");
        } catch (error) {
            item.state(error === "cancelled" ? texts.cancelled : fill(texts.uploadFailed, reason(error)), "failed");
        }
        this.running--;
        this.next();
        if (this.running === 0 && this.waiting.length === 0)
            this.onDone();
    }

    // XMLHttpRequest, since fetch does not tell how much has been sent.
    send(item) {
        return new Promise((resolve, reject) => {
            const request = new XMLHttpRequest();
            item.request = request;
            request.open("PUT", this.folder + encodeName(item.file.name));
            request.upload.addEventListener("progress", (event) => item.progress(event.loaded));
            request.addEventListener("load", () => (request.status < 300 ? resolve() : reject(new RequestError(request.status))));
            request.addEventListener("error", () => reject(new RequestError(0)));
            request.addEventListener("abort", () => reject("cancelled"));
            request.send(item.file);
        });
    }

    makeItem(file) {
        const element = document.createElement("li");
        const name = document.createElement("bdi");
        name.className = "name";
        name.textContent = file.name;
        const button = document.createElement("button");
        button.type = "button";
        const bar = document.createElement("progress");
        bar.max = Math.max(1, file.size);
        bar.value = 0;
        bar.setAttribute("aria-label", file.name);
        const state = document.createElement("span");
        state.className = "state";
        element.append(name, button, bar, state);
        this.list().append(element);

        const item = { file, request: null };
        item.progress = (sent) => {
            bar.value = sent;
            state.textContent = fill(texts.progress, bytes(sent), bytes(file.size));
        };
        item.state = (text, kind) => {
            element.className = kind;
            state.textContent = text;
            if (kind === "done")
                bar.value = bar.max;
            button.hidden = kind === "done";
            button.textContent = kind === "failed" ? texts.retry : texts.cancel;
        };
        button.addEventListener("click", () => {
            if (element.className === "failed")
                return this.queue(item);
            const at = this.waiting.indexOf(item);
            if (at >= 0) {
                this.waiting.splice(at, 1);
                item.state(texts.cancelled, "failed");
            } else {
                item.request?.abort();
            }
        });
        return item;
    }

    list() {
        if (!this.panel) {
            const panel = document.createElement("section");
            panel.className = "uploads";
            panel.setAttribute("aria-label", texts.uploads);
            const header = document.createElement("header");
            const title = document.createElement("h2");
            title.textContent = texts.uploads;
            const close = document.createElement("button");
            close.type = "button";
            close.textContent = texts.close;
            close.addEventListener("click", () => {
                if (this.running > 0 || this.waiting.length > 0)
                    return;
                panel.remove();
                this.panel = null;
            });
            header.append(title, close);
            panel.append(header, document.createElement("ul"));
            document.body.append(panel);
            this.panel = panel;
        }
        return this.panel.querySelector("ul");
    }
}

function bytes(n) {
    const units = ["B", "KiB", "MiB", "GiB", "TiB"];
    let i = 0;
    while (n >= 1024 && i < units.length - 1) {
        n /= 1024;
        i++;
    }
    return (i === 0 ? n : n.toFixed(1)) + " " + units[i];
}
