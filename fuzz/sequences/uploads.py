# SPDX-License-Identifier: Apache-2.0
"""Steps of uploads that go on in other requests: begun, added to, cut, ended, cancelled. What they
are of may be changed, moved or deleted in between."""

import re
import socket

from connection import head

WEIGHTS = {"begin": 5, "append": 5, "cut": 2, "end": 5, "cancel": 1}
PARTIAL = {"Content-Type": "application/partial-upload"}
CUT_BYTES = 100_000  # more than is received before the request is served


class Generator:
    """Adds steps. Each names the number of the step that began its upload."""

    uploads = ()

    def add_begin(self, step, number, locks):
        self.near_a_lock(step, locks)
        step["number"] = number
        step["content"] = f"b{number}" * self.random.choice((0, 1, 30_000))
        step["none_match"] = self.random.random() < 0.1
        step["match"] = self.random.random() < 0.1
        self.uploads = (*self.uploads, step)

    def of_an_upload(self, step):
        step["tokens"] = []
        step["number"] = -1
        if self.uploads:
            upload = self.random.choice(self.uploads)
            step["number"], step["path"] = upload["number"], upload["path"]

    def add_append(self, step, number, _):
        self.of_an_upload(step)
        step["content"] = f"a{number}" * self.random.choice((1, 3, 40_000))

    add_end = add_append

    def add_cut(self, step, number, _):
        self.of_an_upload(step)
        step["content"] = (f"c{number}" * CUT_BYTES)[:CUT_BYTES]

    def add_cancel(self, step, _, __):
        self.of_an_upload(step)


class Pending:
    """One upload: the step that began it, and what of it is kept."""

    def __init__(self, step):
        self.step = step
        self.kept = step["content"]
        self.is_complete = False


class Model:
    """`uploads` by the number of the step that began them; those that have ended are gone."""

    def begin(self, path, step):
        found = self.put_refusals(path, step)
        if not found:
            self.uploads[step["number"]] = Pending(step)
        return found or {201}

    def append(self, _, step):
        upload = self.uploads.get(step["number"])
        if not upload:
            return {404}
        if upload.is_complete:  # told as long as its content bears the name
            return {400, 404}
        upload.kept += step["content"]
        return {204}

    def cut(self, _, step):
        """How much has arrived, only the server knows: the runner takes it over."""
        upload = self.uploads.get(step["number"])
        if not upload or upload.is_complete:
            return {204, 404} if upload else {404}
        return {204}

    def end(self, path, step):
        """Conditions and locks are judged again, as the first request told them."""
        upload = self.uploads.get(step["number"])
        if not upload or upload.is_complete:
            return {400, 404} if upload else {404}
        found = self.put_refusals(path, upload.step)
        if found:
            del self.uploads[step["number"]]
            return found
        status = {204 if path in self.nodes else 201}
        self.nodes[path] = upload.kept + step["content"]
        upload.is_complete = True
        return status

    def cancel(self, _, step):
        upload = self.uploads.pop(step["number"], None)
        if not upload:
            return {404}
        return {204, 404} if upload.is_complete else {204}


class Runner:
    """Sends the steps. `places` and `offsets` are those of the uploads, by number; `mismatch` is
    what is raised where the server and the model part."""

    def place(self, step, path):
        return self.places.get(step["number"]) or self.url(path) + "/.kest/upload/" + 32 * "0"

    def ask_upload(self, method, place, headers=None, body=b""):
        self.requests += 1
        return self.peer.ask(method, place, headers, body)

    def send_begin(self, step, path, headers):
        answer = self.send_put(step, path, {**headers, "Upload-Complete": "?0"})
        if answer.status == 201:
            found = re.search(rb"\r\nLocation: (\S+)\r\n", answer.text)
            self.places[step["number"]] = found[1].decode()
            self.offsets[step["number"]] = len(step["content"])
        return answer

    def send_append(self, step, path, _, complete=False):
        headers = {**PARTIAL, "Upload-Complete": f"?{int(complete)}",
                   "Upload-Offset": str(self.offsets.get(step["number"], 0))}
        answer = self.ask_upload("PATCH", self.place(step, path), headers,
                                 step["content"].encode())
        if answer.status in (201, 204):
            self.offsets[step["number"]] += len(step["content"])
            self.expect_offset(answer, self.offsets[step["number"]])
        return answer

    def send_end(self, step, path, headers):
        return self.send_append(step, path, headers, True)

    def send_cancel(self, step, path, _):
        return self.ask_upload("DELETE", self.place(step, path))

    def send_cut(self, step, path, _):
        """Some of a body, and then what the server tells of it."""
        place = self.place(step, path)
        before = self.offsets.get(step["number"], 0)
        body = step["content"].encode()
        headers = {**PARTIAL, "Upload-Complete": "?0", "Upload-Offset": str(before)}
        with socket.create_connection(("127.0.0.1", self.server.port), 20) as sock:
            sock.sendall(head("PATCH", place, self.server.port, headers, len(body)) +
                         body[:len(body) * 2 // 3])
            sock.shutdown(socket.SHUT_WR)
            while sock.recv(65536):  # it is served to its end before anybody asks
                pass
        answer = self.ask_upload("HEAD", place)
        upload = self.model.uploads.get(step["number"])
        if answer.status == 204 and upload and not upload.is_complete:
            self.take_over(answer, step, before, upload)
        return answer

    def take_over(self, answer, step, before, upload):
        offset = int(answer.headers["upload-offset"])
        if not before <= offset <= before + len(step["content"]):
            raise self.mismatch(f"{offset} bytes are kept of {before} and "
                           f"{len(step['content'])} more")
        upload.kept += step["content"][:offset - before]
        self.offsets[step["number"]] = offset

    def expect_offset(self, answer, wanted):
        told = answer.headers.get("upload-offset")
        if told != str(wanted):
            raise self.mismatch(f"Upload-Offset {told} instead of {wanted}")
