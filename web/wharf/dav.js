// Requests to the server, and the names and texts around them.
const texts = globalThis.messages;

// A failed request: `status` is the HTTP status, 0 when the server was not reached.
export class RequestError extends Error {
    constructor(status) {
        super(status ? texts["e" + status] || fill(texts.eOther, status) : texts.network);
        this.status = status;
    }
}

// Sends a request; throws RequestError unless the answer is a success.
export async function send(method, url, options = {}) {
    let reply;
    try {
        reply = await fetch(url, { method, cache: "no-store", redirect: "error", ...options });
    } catch {
        throw new RequestError(0);
    }
    if (!reply.ok)
        throw new RequestError(reply.status);
    return reply;
}

export function reason(error) {
    return error instanceof Error ? error.message : String(error);
}

// One path component, escaped. What encodeURIComponent leaves alone is legal in a path.
export function encodeName(name) {
    return encodeURIComponent(name);
}

// A folder's path ends with a slash, so that relative links stay inside it.
export function folderUrl(path) {
    return path.endsWith("/") ? path : path + "/";
}

export function isValidName(name) {
    return name !== "" && name !== "." && name !== ".." && !/[/\u0000-\u001f\u007f]/.test(name);
}

// Puts values in place of {0}, {1}, … in a text.
export function fill(text, ...values) {
    return text.replace(/\{(\d)\}/g, (_, i) => String(values[i]));
}
