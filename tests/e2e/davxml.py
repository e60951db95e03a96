# SPDX-License-Identifier: Apache-2.0
"""Reads the XML of replies as the strictest clients do: namespaces as they are declared, the elements
of RFC 4918 in their places, nothing else of its namespace, and no text where none belongs."""

import re
import xml.etree.ElementTree as ElementTree
from urllib.parse import unquote

from harness import Failure

D = "{DAV:}"

# The elements of "DAV:" that may stand in another, as (name, least, most); 0 for most: any number.
# A name that is not here holds text alone, or nothing.
CHILDREN = {
    "multistatus": [("response", 0, 0), ("responsedescription", 0, 1), ("sync-token", 0, 1)],
    "propstat": [("prop", 1, 1), ("status", 1, 1), ("error", 0, 1), ("responsedescription", 0, 1)],
    "lockdiscovery": [("activelock", 0, 0)],
    "activelock": [("lockscope", 1, 1), ("locktype", 1, 1), ("depth", 1, 1), ("owner", 0, 1),
                   ("timeout", 1, 1), ("locktoken", 1, 1), ("lockroot", 1, 1)],
    "lockscope": [("exclusive", 0, 1), ("shared", 0, 1)],
    "locktype": [("write", 1, 1)],
    "locktoken": [("href", 1, 1)],
    "lockroot": [("href", 1, 1)],
    "supportedlock": [("lockentry", 0, 0)],
    "lockentry": [("lockscope", 1, 1), ("locktype", 1, 1)],
    "resourcetype": [("collection", 0, 1)],
    "current-user-privilege-set": [("privilege", 0, 0)],
    "mkcol-response": [("propstat", 1, 0)],
    "propertyupdate": None, "propfind": None, "lockinfo": None,  # of requests only
}
EMPTY = {"collection", "exclusive", "shared", "write", "propfind-finite-depth",
         "cannot-modify-protected-property", "no-external-entities", "preserved-live-properties",
         "lock-token-matches-request-uri", "valid-resourcetype", "resource-must-be-null"}
PRECONDITIONS = EMPTY | {"lock-token-submitted", "no-conflicting-lock"}
LIVE = {"creationdate", "displayname", "getcontentlanguage", "getcontentlength", "getcontenttype",
        "getetag", "getlastmodified", "lockdiscovery", "resourcetype", "supportedlock",
        "quota-available-bytes", "quota-used-bytes", "current-user-privilege-set"}
TEXTS = {
    "href": r"(/[A-Za-z0-9._~:!$'()*+,;=@|{}%/-]*|[a-z][a-z0-9+.-]*:\S+)",
    "status": r"HTTP/1\.1 [1-5]\d\d [ -~]*",
    "depth": r"0|1|infinity",
    "timeout": r"Infinite|Second-[1-9]\d*|Second-0",
    "getcontentlength": r"\d+",
    "quota-available-bytes": r"\d+",
    "quota-used-bytes": r"\d+",
    "getetag": r'(W/)?"[!#-~]*"',
    "getlastmodified": r"(Mon|Tue|Wed|Thu|Fri|Sat|Sun), \d\d (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|"
                       r"Oct|Nov|Dec) \d{4} \d\d:\d\d:\d\d GMT",
    "creationdate": r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ",
    "getcontenttype": r"[\w.+-]+/[\w.+-]+(; ?[\w-]+=\S+)*",
}


def parsed(body):
    """The root of a document that has to be well-formed, with every prefix declared. Clients refuse
    declarations of types and of entities, and none is needed."""
    if not body.startswith(b"<?xml ") or b"<!" in body:
        raise Failure(f"no plain XML document: {body[:200]!r}")
    try:
        return ElementTree.fromstring(body)
    except ElementTree.ParseError as error:
        raise Failure(f"not well-formed: {error}: {body[:2000]!r}") from None


def refuse(element, why):
    raise Failure(f"{why}: {ElementTree.tostring(element)[:1000]!r}")


def local(element):
    """The name of an element of the protocol."""
    if not element.tag.startswith(D):
        refuse(element, "not of the namespace DAV:")
    return element.tag[len(D):]


def holds_no_text(element):
    for text in [element.text] + [child.tail for child in element]:
        if text is not None and text.strip():
            refuse(element, "text among elements")


def check_children(element, allowed):
    holds_no_text(element)
    names = [local(child) for child in element]
    counts = {name: (least, most) for name, least, most in allowed}
    for name in names:
        if name not in counts:
            refuse(element, f"{name} does not belong here")
    for name, (least, most) in counts.items():
        if names.count(name) < least or most and names.count(name) > most:
            refuse(element, f"{names.count(name)} times {name}")
    for child in element:
        check(child)


def check_text(element, name):
    text = element.text or ""
    if len(element):
        refuse(element, "elements where text belongs")
    if name in TEXTS and not re.fullmatch(TEXTS[name], text):
        refuse(element, f"no {name}")
    if name == "href" and re.search(r"%(?![0-9A-F]{2})|%2F", text):
        refuse(element, "an escape that clients do not take")


def check_response(element):
    """RFC 4918 section 14.24. Clients that read as they receive want the href first."""
    holds_no_text(element)
    names = [local(child) for child in element]
    kinds = {"href", "propstat", "status", "error", "responsedescription", "location"}
    if not names or names[0] != "href" or not set(names) <= kinds:
        refuse(element, "no response")
    if ("propstat" in names) == ("status" in names) or names.count("status") > 1:
        refuse(element, "neither propstat nor status, or both")
    if "propstat" in names and names.count("href") > 1:
        refuse(element, "several names for one list of properties")
    for child in element:
        check(child)
    if not element[0].text.startswith("/"):
        refuse(element, "an href that is no absolute path")


def check_propstat(element):
    check_children(element, CHILDREN["propstat"])
    code = element.find(D + "status").text.split()[1]
    for child in element.find(D + "prop"):
        if code != "200" and (len(child) or child.text):
            refuse(child, "a value that was not found")
        if code == "200" and child.tag.startswith(D):
            check_live(child)


def check_live(element):
    """A property of the protocol: one that exists, without attributes, which some readers take for
    a part of the value. Without text in "propname"'s answer and in PROPPATCH's."""
    name = local(element)
    if name not in LIVE and not name.startswith("x-") and name not in ("lastmodified",):
        refuse(element, "no property of the protocol")
    if element.attrib:
        refuse(element, "attributes")
    if len(element) or element.text:
        check(element)


def check_privileges(element):
    """What a user lacks, and where (RFC 3744 section 7.1.1)."""
    for resource in element:
        if [local(each) for each in resource] != ["href", "privilege"] or len(resource[1]) != 1:
            refuse(resource, "no resource with a privilege")
        check(resource[0])


def check_error(element):
    holds_no_text(element)
    for child in element:
        if local(child) == "need-privileges":
            check_privileges(child)
            continue
        if local(child) not in PRECONDITIONS:
            refuse(child, "no condition of the protocol")
        if local(child) in EMPTY and (len(child) or child.text):
            refuse(child, "it has to be empty")
        if local(child) == "lock-token-submitted" and not len(child):
            refuse(child, "it has to name what is locked")
        for href in child:
            if local(href) != "href":
                refuse(child, "only names belong here")
            check(href)


def check_owner(_element):
    """Whatever the client has sent, in its own namespaces."""


def check_privilege(element):
    if len(element) != 1 or len(element[0]) or not element[0].tag.startswith(D):
        refuse(element, "no privilege")


def check_prop(element):
    holds_no_text(element)


def check(element):
    """Fails where an element of the protocol is not what RFC 4918 says."""
    name = local(element)
    if name in SPECIAL:
        SPECIAL[name](element)
    elif CHILDREN.get(name) is not None:
        check_children(element, CHILDREN[name])
    elif name in CHILDREN:
        refuse(element, "not in a reply")
    elif name in EMPTY:
        if len(element) or element.text:
            refuse(element, "it has to be empty")
    else:
        check_text(element, name)
    if name == "lockscope" and len(element) != 1:
        refuse(element, "one scope")


SPECIAL = {"response": check_response, "propstat": check_propstat, "error": check_error,
           "owner": check_owner, "privilege": check_privilege, "prop": check_prop}


def document(body, root):
    """The checked root of a reply, which is to be this one: "multistatus", "prop" or "error"."""
    element = parsed(body)
    if local(element) != root:
        refuse(element, f"this is no {root}")
    check(element)
    if root == "prop":  # of LOCK
        for child in element:
            check_live(child)
    return element


def condition(body):
    """The precondition that an error names (RFC 4918 section 16), and the hrefs in it."""
    element, = document(body, "error")
    return local(element), [href.text for href in element]


def active_locks(body):
    """Of LOCK's reply, or of any property that tells of locks."""
    return list(document(body, "prop").find(D + "lockdiscovery"))


def stays_below(root, path):
    """Fails unless every response is about the path that was asked for, or what is below it."""
    asked = unquote(path).rstrip("/")
    for href in root.iterfind(f"{D}response/{D}href"):
        if not (unquote(href.text) + "/").startswith(asked + "/"):
            refuse(href, f"not below {path}")


def tells_each_property_once(root):
    for response in root:
        told = [prop.tag for each in response.findall(f"{D}propstat/{D}prop") for prop in each]
        if len(told) != len(set(told)):
            refuse(response, "a property that is told twice")


def read_reply(method, path, reply):
    """Checks whatever XML a reply bears: what it is follows from the method and the status. The
    root element, None without XML."""
    kind = reply.headers.get("content-type", "")
    if not reply.body or "xml" not in kind:
        if reply.status == 207 or method == "LOCK" and reply.status in (200, 201):
            raise Failure(f"a reply without its XML: {reply}")
        return None
    if method in ("GET", "HEAD"):
        return None
    if not re.fullmatch(r'(application|text)/xml; charset="?utf-8"?', kind):
        raise Failure(f"XML that says it is {kind}")
    if reply.status == 207:
        root = document(reply.body, "multistatus")
        if method in ("PROPFIND", "PROPPATCH") and re.fullmatch(r"(/[^/?]+)+/?", path):
            stays_below(root, path)
        if method == "PROPFIND":
            tells_each_property_once(root)
        return root
    if method == "LOCK" and reply.status in (200, 201):
        return document(reply.body, "prop")
    if method == "MKCOL" and parsed(reply.body).tag == D + "mkcol-response":
        return document(reply.body, "mkcol-response")
    return document(reply.body, "error")
