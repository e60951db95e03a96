# SPDX-License-Identifier: Apache-2.0
"""Drives a LibreOffice of its own without a screen.

usage: office.py HOME STEP…, where STEP is one of
    new URL TEXT            stores a new document
    edit URL OLD NEW        opens it, which has to be writable and say OLD, and saves it with NEW
    readonly URL TEXT       opens it, which has to say TEXT and not to be writable
    text URL FILE           opens it, and stores its text in a local file
"""

import subprocess
import sys
import time

import uno
from com.sun.star.beans import PropertyValue
from com.sun.star.connection import NoConnectException

PATIENCE = 100  # seconds for it to start, on a busy machine


def properties(**values):
    return tuple(PropertyValue(Name=name, Value=value) for name, value in values.items())


def connect(office, pipe):
    local = uno.getComponentContext()
    resolver = local.ServiceManager.createInstanceWithContext(
        "com.sun.star.bridge.UnoUrlResolver", local)
    end = time.monotonic() + PATIENCE
    while True:
        try:
            context = resolver.resolve(f"uno:pipe,name={pipe};urp;StarOffice.ComponentContext")
            return context.ServiceManager.createInstanceWithContext(
                "com.sun.star.frame.Desktop", context)
        except NoConnectException:
            if office.poll() is not None or time.monotonic() > end:
                sys.exit("the office does not start")
            time.sleep(0.1)


def load(desktop, url):
    document = desktop.loadComponentFromURL(url, "_blank", 0, properties(Hidden=True))
    if document is None:
        sys.exit(f"{url} does not open")
    return document


def says(document, text):
    if document.Text.String != text:
        sys.exit(f"the document says {document.Text.String!r}, not {text!r}")


def new(desktop, url, text):
    document = load(desktop, "private:factory/swriter")
    document.Text.String = text
    document.storeAsURL(url, ())
    document.close(True)


def edit(desktop, url, old, text):
    document = load(desktop, url)
    says(document, old)
    if document.isReadonly():
        sys.exit("the document cannot be written")
    document.Text.String = text
    document.store()
    document.close(True)


def readonly(desktop, url, text):
    document = load(desktop, url)
    says(document, text)
    if not document.isReadonly():
        sys.exit("the document can be written though another holds it")
    document.close(True)


def text_of(desktop, url, path):
    document = load(desktop, url)
    document.storeToURL(uno.systemPathToFileUrl(path),
                        properties(FilterName="Text (encoded)", FilterOptions="UTF8"))
    document.close(True)


STEPS = {"new": (new, 2), "edit": (edit, 3), "readonly": (readonly, 2), "text": (text_of, 2)}


def main():
    home, *rest = sys.argv[1:]
    pipe = home.rsplit("/", 1)[-1]
    office = subprocess.Popen(
        ["soffice", "--headless", "--norestore", "--nologo", "--nodefault",
         f"-env:UserInstallation=file://{home}/office", f"--accept=pipe,name={pipe};urp;"])
    try:
        desktop = connect(office, pipe)
        while rest:
            step, count = STEPS[rest[0]]
            step(desktop, *rest[1:count + 1])
            print(*rest[:count], flush=True)
            rest = rest[count + 1:]
        try:
            desktop.terminate()
        except Exception:  # the connection ends with the office
            pass
        office.wait(PATIENCE)
    finally:
        if office.poll() is None:
            office.kill()
            office.wait()
    print("done")


main()
