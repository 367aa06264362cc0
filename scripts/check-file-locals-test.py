#!/usr/bin/env python3
"""Cases for check-file-locals.py on small made-up source trees."""
import contextlib
import io
import os
import runpy
import sys
import tempfile
import types
import unittest
from pathlib import Path

# The checker's file name has dashes, so it is loaded by path, not imported.
check = types.SimpleNamespace(**runpy.run_path(str(Path(__file__).with_name("check-file-locals.py"))))


def run(files, args):
    """Writes `files` (path -> text) into a fresh folder, runs the check there
    and returns its exit status and the names it reported."""
    with tempfile.TemporaryDirectory() as root:
        for path, text in files.items():
            (Path(root) / path).parent.mkdir(parents=True, exist_ok=True)
            (Path(root) / path).write_text(text)
        out = io.StringIO()
        cwd = os.getcwd()
        os.chdir(root)
        try:
            with contextlib.redirect_stdout(out):
                status = check.main(args)
        finally:
            os.chdir(cwd)
    return status, {line.split(": ")[1] for line in out.getvalue().splitlines()}


class FileLocals(unittest.TestCase):
    def test_collects_only_what_a_file_keeps_to_itself(self):
        names = check.file_locals(r'''
namespace tsl {
namespace {
constexpr int limit = 3;
std::atomic<bool> stopped{false};
struct Pending { int describe() const; };
template <class T> T run(asio::awaitable<T> task) { auto inner = [] { return 1; }; return {}; }
using Kind = InputEvent::Kind;
using svg::fixed;
const char* text = "namespace { int fake; }";
const char* raw = R"x(static int alsoFake();)x";
}  // namespace
static bool quiet(int) { return true; }
int shared(int a);  // not file-local
TEST(Suite, Case) { int local = 0; }
#define TSL_HELPER(x) x
}  // namespace tsl
''')
        self.assertEqual(names, {"limit", "stopped", "Pending", "run", "Kind=InputEvent::Kind", "fixed=svg::fixed",
                                 "text", "raw", "quiet", "#define TSL_HELPER"})

    def test_reports_a_name_two_files_of_one_target_define(self):
        status, names = run({
            "lib/A.cpp": "namespace { void describe(int) {} int same = 1; using K = X::Kind; }",
            "lib/B.cpp": "namespace { void describe(long) {} int other = 1; using K = X::Kind; }",
            "lib/C.cpp": "namespace { using K = Y::Kind; } static int same = 2;",
        }, ["lib"])
        self.assertEqual(status, 1)
        self.assertEqual(names, {"describe", "same", "K"})

    def test_separate_targets_and_exempt_hooks_do_not_clash(self):
        status, names = run({
            "lib/A.cpp": "namespace { void helper() {} }\ntemplate <class V, Is<R> T> void fields(V& v, T& r) {}",
            "lib/Sub/B.cpp": "namespace { void helper() {} }",
            "lib/C.cpp": "namespace { template <class V, Is<Q> T> void fields(V& v, T& r) {} }",
        }, ["lib", "lib/Sub"])
        self.assertEqual((status, names), (0, set()))

    def test_reports_a_file_local_name_that_a_header_declares(self):
        files = {
            "support/Files.h": "namespace tsl::test {\nvoid writeFile(const std::string& p, const std::string& t);\n}",
            "tests/A.cpp": "namespace { void writeFile(const char* p, const char* t) {} }",
            "tests/B.cpp": "namespace { using tsl::test::readFile; }",
            "tests/Own.h": "namespace tsl { struct World {}; }",
            "tests/C.cpp": "namespace { struct World {}; }",
        }
        self.assertEqual(run(files, ["--shared", "support", "tests"]), (1, {"writeFile", "World"}))
        # Shared headers count only for the folders named after them.
        self.assertEqual(run(files, ["tests", "--shared", "support"]), (1, {"World"}))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
