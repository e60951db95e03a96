# SPDX-License-Identifier: Apache-2.0
"""What the tests of access rules share: users, rules, and the state of a tree.

"anna" is in the group "staff", for which the rules are; "ben" is in none.
"""

import os

from harness import url_path
from test_program import basic

RIGHTS = ("list", "read", "create", "change", "delete")
ANNA, BEN = basic("anna", "a"), basic("ben", "b")
USERS = ("--user", "anna:a", "--user", "ben:b")
LOCK_BODY = (b'<D:lockinfo xmlns:D="DAV:"><D:lockscope><D:exclusive/></D:lockscope>'
             b"<D:locktype><D:write/></D:locktype></D:lockinfo>")
PATCH_BODY = (b'<D:propertyupdate xmlns:D="DAV:" xmlns:z="urn:z"><D:set><D:prop>'
              b"<z:p>v</z:p></D:prop></D:set></D:propertyupdate>")
GOOD = range(200, 300)


def rule(path, rights, who=("group:staff",), **more):
    return {"Who": list(who), "Path": path, "Rights": sorted(rights), **more}


def rules(**named):
    settings = {"Access\\Groups": {"staff": ["anna"]}}
    settings.update({f"Access\\Rules\\{name}": values for name, values in named.items()})
    return settings


def subsets():
    for mask in range(1 << len(RIGHTS)):
        yield {right for bit, right in enumerate(RIGHTS) if mask >> bit & 1}


def name_of(rights):
    return "m" + "".join(right[:2] for right in RIGHTS if right in rights)


def at(path):
    """The request path of something in the volume."""
    return url_path("docs", *path.split("/"))


def snapshot(folder):
    """Names and contents below a folder, without what the store keeps for itself."""
    found = {}
    for parent, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if name != ".kest"]
        for name in folders:
            found[os.path.relpath(os.path.join(parent, name), folder)] = None
        for name in files:
            with open(os.path.join(parent, name), "rb") as file:
                found[os.path.relpath(os.path.join(parent, name), folder)] = file.read()
    return found


def form(name, content):
    """The headers and body of an upload by form."""
    body = (f'--bound-1\r\nContent-Disposition: form-data; name="f"; filename="{name}"\r\n'
            f"Content-Type: text/plain\r\n\r\n{content}\r\n--bound-1--\r\n").encode()
    return {"Content-Type": "multipart/form-data; boundary=bound-1"}, body
