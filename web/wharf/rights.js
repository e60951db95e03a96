// What the user may do with a folder and its entries, and the buttons that follow from that. The
// server refuses what is not allowed in any case; the page does not offer it.
import { send } from "./dav.js";

const wanted =
    '<?xml version="1.0" encoding="utf-8"?>' +
    '<propfind xmlns="DAV:" xmlns:o="http://owncloud.org/ns"><prop><o:permissions/><current-user-privilege-set/></prop></propfind>';

// A server that does not tell (the classic dialect), or cannot now, is taken to allow everything.
const everything = { creates: true, removesMembers: true, removes: true, renames: true };

let creates = true;

// Whether something new may be put into the folder that is shown.
export function mayCreate() {
    return creates;
}

async function rightsOf(url) {
    try {
        const reply = await send("PROPFIND", url, { headers: { Depth: "0", "Content-Type": "application/xml" }, body: wanted });
        const answer = new DOMParser().parseFromString(await reply.text(), "application/xml");
        const letters = valueOf(answer, "http://owncloud.org/ns", "permissions")?.textContent;
        const privileges = valueOf(answer, "DAV:", "current-user-privilege-set");
        if (letters === undefined || !privileges)
            return everything;
        const has = (name) => privileges.getElementsByTagNameNS("DAV:", name).length > 0;
        return {
            creates: has("bind"),
            removesMembers: has("unbind"),
            removes: letters.includes("D"),
            renames: letters.includes("N"),
        };
    } catch {
        return everything;
    }
}

// A property that is there: not one that is told as missing.
function valueOf(answer, namespace, name) {
    for (const found of answer.getElementsByTagNameNS(namespace, name))
        if (found.closest("propstat")?.querySelector("status")?.textContent.includes(" 200"))
            return found;
    return undefined;
}

// Shows of the page's buttons those for what is allowed. An entry that a rule of its own speaks of is
// asked about when the person comes to it.
export async function offerAllowed(folder, rows) {
    const told = await rightsOf(folder);
    creates = told.creates;
    for (const id of ["upload", "new-folder"])
        show(document, "#" + id, told.creates);
    for (const row of rows) {
        const rowShows = (removes, renames) => {
            show(row, '[data-action="remove"]', removes);
            show(row, '[data-action="rename"]', renames && creates);
            show(row, '[data-action="restore"]', creates);
        };
        rowShows(told.removesMembers, told.removesMembers);
        if (row.entry.isDeleted)
            continue;
        let isAsked = false;
        const ask = async () => {
            if (isAsked)
                return;
            isAsked = true;
            const own = await rightsOf(row.entry.url);
            rowShows(own.removes, own.renames);
        };
        row.addEventListener("pointerenter", ask);
        row.addEventListener("focusin", ask);
    }
}

function show(place, selector, isAllowed) {
    const button = place.querySelector(selector);
    if (button)
        button.hidden = !isAllowed;
}
