# SPDX-License-Identifier: Apache-2.0
"""An installation in a place of its own serves what the build tree serves."""

import os
import re
import shutil
import subprocess
import unittest

import harness
from harness import TestServer, Tree, url_path


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Tree()
        build = os.path.join(harness.ROOT, "build", "release")
        subprocess.run(["cmake", "--install", build, "--prefix", cls.prefix / "a place"],
                       check=True, capture_output=True)
        # It must not lean on the place that it was installed to.
        os.rename(cls.prefix / "a place", cls.prefix / "moved")
        cls.program = cls.prefix / "moved/bin/kestd"

    @classmethod
    def tearDownClass(cls):
        cls.prefix.remove()

    def test_layout(self):
        for path in ("bin/kestd", "lib/kest/libtolm.so", "lib/kest/kestdav.so",
                     "lib/kest/filestore.so", "include/kest/dav.h", "share/kest/templates",
                     "share/kest/wharf", "share/kest/examples/kestd.service",
                     "share/doc/kest/operations.md"):
            self.assertTrue(os.path.exists(self.prefix / ("moved/" + path)), path)

    def test_nothing_leads_back_to_the_build_tree(self):
        for path in ("bin/kestd", "lib/kest/libtolm.so", "lib/kest/kestdav.so",
                     "lib/kest/filestore.so"):
            text = subprocess.run(["readelf", "-d", self.prefix / ("moved/" + path)], check=True,
                                  capture_output=True, text=True).stdout
            paths = re.findall(r"(?:RUNPATH|RPATH)\).*\[(.*)\]", text)
            self.assertIn(paths, ([], ["$ORIGIN/../lib/kest"], ["$ORIGIN"]), path)

    def test_other_projects_find_the_contract(self):
        moved = self.prefix / "moved"
        flags = subprocess.run(["pkg-config", "--cflags", "kest"], check=True, capture_output=True,
                               text=True, env={**os.environ, "PKG_CONFIG_PATH":
                                               os.path.join(moved, "share/pkgconfig")}).stdout
        self.assertTrue(os.path.samefile(flags.split()[0].removeprefix("-I"),
                                         os.path.join(moved, "include")))
        project = Tree()
        self.addCleanup(project.remove)
        project.write("CMakeLists.txt",
                      b"cmake_minimum_required(VERSION 3.25)\nproject(provider LANGUAGES NONE)\n"
                      b"find_package(kest 0.2 REQUIRED)\n"
                      b"get_target_property(found kest::contract INTERFACE_INCLUDE_DIRECTORIES)\n"
                      b"if(NOT EXISTS ${found}/kest/dav.h)\n  message(FATAL_ERROR ${found})\n"
                      b"endif()\n")
        subprocess.run(["cmake", "-S", project.path, "-B", project.path + "/build",
                        f"-DCMAKE_PREFIX_PATH={moved}"], check=True, capture_output=True)

    def test_manual_pages_and_completion_name_every_option_and_setting(self):
        pages = Tree()
        self.addCleanup(pages.remove)
        source = os.path.join(harness.ROOT, "packaging")
        subprocess.run([os.path.join(source, "man", "make-man"), self.program, pages.path],
                       check=True)
        text = {name: pages.read(name).decode().replace("\\-", "-") for name in
                ("kestd.8", "kestd-user.8", "kest.toml.5")}
        said = subprocess.run([self.program, "--help"], check=True, capture_output=True,
                              text=True).stdout
        with open(self.prefix / "moved/share/bash-completion/completions/kestd",
                  encoding="utf-8") as file:
            completion = file.read()
        for option in set(re.findall(r"--[a-z-]+", said)):
            self.assertIn(option, text["kestd.8"] + text["kestd-user.8"])
            self.assertIn(option, completion)
        with open(os.path.join(source, "kest.toml"), encoding="utf-8") as file:
            for name in re.findall(r"^#? *('[^']+') = ", file.read(), re.MULTILINE):
                self.assertIn(name, text["kest.toml.5"])

    def test_serves_content_pages_and_scripts(self):
        tree = Tree()
        state = Tree()
        before, harness.KESTD = harness.KESTD, self.program
        try:
            with TestServer({"docs": tree.path}, env={"HOME": state.path}) as server:
                self.assertEqual(server.request("PUT", url_path("docs", "file"), b"x").status, 201)
                self.assertEqual(tree.read("file"), b"x")
                page = server.request("GET", url_path("docs") + "/",
                                      headers={"Accept": "text/html", "User-Agent": "Mozilla/5.0"})
                self.assertEqual(page.status, 200)
                self.assertIn(b"/Wharf/", page.body)
                self.assertEqual(server.request("GET", "/Wharf/index.css").status, 200)
        finally:
            harness.KESTD = before
            tree.remove()
            state.remove()

    def test_without_directories_it_serves_files_of_its_state_directory(self):
        home = Tree()
        before, harness.KESTD = harness.KESTD, self.program
        try:
            with TestServer({}, env={"HOME": home.path}) as server:
                self.assertEqual(server.request("PUT", url_path("files", "f"), b"x").status, 201)
                self.assertTrue(os.path.exists(os.path.join(server.state, "files", "f")))
        finally:
            harness.KESTD = before
            shutil.rmtree(home.path, ignore_errors=True)
