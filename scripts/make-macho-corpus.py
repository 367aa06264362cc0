#!/usr/bin/env python3
"""Builds the scanner's test corpus with real toolchains and writes its
expected results.

    make-macho-corpus.py OUTDIR

Mach-O files come from clang-14 (-target <arch>-apple-macos11) and lld-14's
Mach-O linker against small .tbd stubs, fat files from llvm-lipo-14, binary
property lists from plistlib. Expected slices are what llvm-lipo-14 reports,
expected libraries what llvm-otool-14 lists (llvm-objdump-14 for one slice of
a fat file); the script checks that the tools agree with what it meant to
build. Where the toolchain is missing it writes an expected.json that only
says why, and the tests skip.

Two outputs are edited after the tools made them, because no available tool
makes them directly: a fat file with its entries reordered (llvm-lipo always
puts arm64 last), and a copy of an executable whose load commands are retagged
as lazy and upward (lld-14 has no options for those). llvm-lipo and
llvm-otool read both back, and their output is what is expected.
"""

import json
import os
import plistlib
import shutil
import struct
import subprocess
import sys

CLANG = "clang-14"
LD = "ld64.lld-14"
LIPO = "llvm-lipo-14"
OTOOL = "llvm-otool-14"
OBJDUMP = "llvm-objdump-14"
ARCH_TARGETS = ["x86_64", "x86_64h", "arm64", "arm64e"]

LOAD_COMMANDS = {"LC_LOAD_DYLIB", "LC_REEXPORT_DYLIB", "LC_LAZY_LOAD_DYLIB", "LC_LOAD_UPWARD_DYLIB"}
WEAK_COMMAND = "LC_LOAD_WEAK_DYLIB"


def run(*args, cwd=None):
    return subprocess.run(list(args), check=True, capture_output=True, text=True, cwd=cwd).stdout


def fail(message):
    raise SystemExit("make-macho-corpus: " + message)


# --- tools' view -------------------------------------------------------------

def lipo_archs(path):
    """The slices llvm-lipo reports, in file order; None when it reads no Mach-O."""
    result = subprocess.run([LIPO, "-archs", path], capture_output=True, text=True)
    if result.returncode != 0:
        return None
    return result.stdout.split()


def otool_dylibs(path, arch=None):
    """(command, name) of the load commands with a name that llvm-otool lists.
    One slice of a fat file comes from llvm-objdump, the same reader, since
    llvm-otool-14 lists every slice whatever -arch says."""
    if arch:
        args = [OBJDUMP, "--macho", "--private-headers", f"--arch={arch}", path]
    else:
        args = [OTOOL, "-l", path]
    found, cmd = [], None
    for line in run(*args).splitlines():
        words = line.split()
        if len(words) >= 2 and words[0] == "cmd":
            cmd = words[1]
        elif len(words) >= 2 and words[0] == "name" and cmd is not None:
            name = line.strip()[len("name "):]
            name = name[: name.rfind(" (offset")] if " (offset" in name else name
            found.append((cmd, name))
            cmd = None
    return found


def classify(archs):
    intel = any(a in ("x86_64", "x86_64h") for a in archs)
    silicon = any(a in ("arm64", "arm64e") for a in archs)
    if intel:
        return "universal" if silicon else "intelOnly"
    if silicon:
        return "appleSilicon"
    if any(a in ("i386", "ppc", "ppc64") for a in archs):
        return "legacy32bit"
    return "unknown"


def preferred_arch(archs):
    """The slice whose libraries stand for a fat file."""
    for a in archs:
        if a in ("x86_64", "x86_64h"):
            return a
    for a in archs:
        if a in ("i386", "arm64", "arm64e"):
            return a
    return None


def dylibs_of(path):
    archs = lipo_archs(path)
    if not archs:
        return [], []
    fat = open(path, "rb").read(4) in (b"\xca\xfe\xba\xbe", b"\xca\xfe\xba\xbf")
    arch = preferred_arch(archs) if fat else None
    if fat and arch is None:
        return [], []
    commands = otool_dylibs(path, arch)
    strong = [n for c, n in commands if c in LOAD_COMMANDS]
    everything = [n for c, n in commands if c in LOAD_COMMANDS or c == WEAK_COMMAND]
    return strong, everything


# --- building ----------------------------------------------------------------

def tbd(install_name, symbols, reexports=()):
    targets = ", ".join(t + "-macos" for t in ARCH_TARGETS)
    text = f"""--- !tapi-tbd
tbd-version:     4
targets:         [ {targets} ]
install-name:    '{install_name}'
exports:
  - targets:     [ {targets} ]
    symbols:     [ {', '.join(symbols)} ]
...
"""
    return text


def write(path, data, mode=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb" if isinstance(data, bytes) else "w") as f:
        f.write(data)
    if mode is not None:
        os.chmod(path, mode)


def make_sdk(sdk):
    write(f"{sdk}/usr/lib/libSystem.tbd", tbd("/usr/lib/libSystem.B.dylib", ["dyld_stub_binder", "_puts"]))
    for name, symbol in (("OpenGL", "_glFlush"), ("OpenCL", "_clFinish"), ("AGL", "_aglSwapBuffers")):
        text = tbd(f"/System/Library/Frameworks/{name}.framework/Versions/A/{name}", [symbol])
        # -framework looks at the top; a re-export is found by its install name.
        write(f"{sdk}/System/Library/Frameworks/{name}.framework/{name}.tbd", text)
        write(f"{sdk}/System/Library/Frameworks/{name}.framework/Versions/A/{name}.tbd", text)
    # A library whose install name begins with a framework's name, with no "/" before it.
    write(f"{sdk}/usr/lib/librelgl.tbd", tbd("OpenGL.framework/Versions/A/OpenGL", ["_relFlush"]))


SOURCES = {
    "main.c": "int main(void) { return 0; }\n",
    "gl.c": "extern void glFlush(void);\nint main(void) { glFlush(); return 0; }\n",
    "cl.c": "extern void clFinish(void);\nint main(void) { clFinish(); return 0; }\n",
    "engine.c": "extern void clFinish(void);\nextern void glFlush(void) __attribute__((weak_import));\n"
                "void engineRun(void) { clFinish(); if (glFlush) glFlush(); }\n",
    "uses-engine.c": "extern void engineRun(void);\nint main(void) { engineRun(); return 0; }\n",
    "kit.c": "void kitRun(void) {}\n",
    "uses-kit.c": "extern void kitRun(void);\nint main(void) { kitRun(); return 0; }\n",
    "relgl.c": "extern void relFlush(void);\nint main(void) { relFlush(); return 0; }\n",
}


class Builder:
    def __init__(self, out):
        self.out = out
        self.obj = f"{out}/obj"
        self.sdk = f"{out}/sdk"
        os.makedirs(self.obj, exist_ok=True)
        make_sdk(self.sdk)
        for name, text in SOURCES.items():
            write(f"{self.obj}/{name}", text)

    def compile(self, source, arch):
        out = f"{self.obj}/{source[:-2]}.{arch}.o"
        if not os.path.exists(out):
            run(CLANG, "-target", f"{arch}-apple-macos11", "-c", f"{self.obj}/{source}", "-o", out)
        return out

    def link(self, output, source, arch, *flags, dylib=False, install_name=None):
        args = [LD, "-arch", arch, "-platform_version", "macos", "11.0", "11.0", "-syslibroot", self.sdk,
                "-lSystem"]
        if dylib:
            args += ["-dylib", "-install_name", install_name]
        args += list(flags) + [self.compile(source, arch), "-o", output]
        os.makedirs(os.path.dirname(output), exist_ok=True)
        run(*args)
        return output

    def lipo(self, output, *inputs):
        run(LIPO, "-create", *inputs, "-output", output)
        return output


def swap_first_fat_entries(path):
    """Reorders a fat file's first two entries; the slices stay where they are."""
    data = bytearray(open(path, "rb").read())
    magic, count = struct.unpack(">II", data[:8])
    size = 20 if magic == 0xCAFEBABE else 32
    if count < 2:
        fail(f"{path}: nothing to reorder")
    first, second = data[8:8 + size], data[8 + size:8 + 2 * size]
    data[8:8 + size], data[8 + size:8 + 2 * size] = second, first
    open(path, "wb").write(bytes(data))


def retag_load_commands(path, retag):
    """Changes the command of library loads by name: {name substring: new cmd}."""
    data = bytearray(open(path, "rb").read())
    magic, _, _, _, ncmds, _ = struct.unpack("<IiiIII", data[:24])
    at = 32 if magic == 0xFEEDFACF else 28
    for _ in range(ncmds):
        cmd, size = struct.unpack("<II", data[at:at + 8])
        if cmd == 0xC:
            offset = struct.unpack("<I", data[at + 8:at + 12])[0]
            name = bytes(data[at + offset:at + size]).split(b"\0")[0].decode()
            for part, new in retag.items():
                if part in name:
                    struct.pack_into("<I", data, at, new)
        at += size
    open(path, "wb").write(bytes(data))


def expect(condition, message):
    if not condition:
        fail("toolchain output differs from the plan: " + message)


# --- the corpus --------------------------------------------------------------

def build_machos(b, out):
    m = f"{out}/macho"
    os.makedirs(m, exist_ok=True)
    gl_x86 = b.link(f"{m}/x86_64-opengl", "gl.c", "x86_64", "-framework", "OpenGL")
    cl_arm = b.link(f"{m}/arm64-weak-opencl", "cl.c", "arm64", "-weak_framework", "OpenCL")
    b.link(f"{m}/arm64e-plain", "main.c", "arm64e")
    b.link(f"{m}/x86_64h-plain", "main.c", "x86_64h")
    # lld-14 writes the plain subtype into linked x86_64h and arm64e files;
    # clang's objects keep the real one.
    for arch in ("x86_64h", "arm64e", "i386", "arm64"):
        shutil.copy(b.compile("main.c", arch), f"{m}/{arch}.o")
    b.link(f"{m}/relative-opengl", "relgl.c", "x86_64", "-lrelgl")

    b.lipo(f"{m}/fat-x86_64-arm64", gl_x86, cl_arm)
    b.lipo(f"{m}/fat-arm64-x86_64", gl_x86, cl_arm)
    swap_first_fat_entries(f"{m}/fat-arm64-x86_64")
    expect(lipo_archs(f"{m}/fat-arm64-x86_64") == ["arm64", "x86_64"], "reordered fat file")
    b.lipo(f"{m}/fat-i386-arm64", f"{m}/i386.o", cl_arm)
    expect(lipo_archs(f"{m}/fat-i386-arm64") == ["i386", "arm64"], "lipo order of i386 and arm64")
    b.lipo(f"{m}/fat-arm64-i386", f"{m}/i386.o", cl_arm)
    swap_first_fat_entries(f"{m}/fat-arm64-i386")
    b.lipo(f"{m}/fat-x86_64h-arm64e", f"{m}/x86_64h.o", f"{m}/arm64e.o")

    kit = b.link(f"{m}/libkit-reexport.dylib", "kit.c", "x86_64", "-reexport_framework", "AGL",
                 "-weak_framework", "OpenGL", dylib=True, install_name="@rpath/libKit.dylib")
    expect(("LC_REEXPORT_DYLIB", "/System/Library/Frameworks/AGL.framework/Versions/A/AGL") in otool_dylibs(kit),
           "re-export command")
    shutil.copy(gl_x86, f"{m}/lazy-upward")
    retag_load_commands(f"{m}/lazy-upward", {"OpenGL": 0x20, "libSystem": 0x80000023})
    commands = [c for c, _ in otool_dylibs(f"{m}/lazy-upward")]
    expect("LC_LAZY_LOAD_DYLIB" in commands and "LC_LOAD_UPWARD_DYLIB" in commands, "retagged commands")
    write(f"{m}/plain-text", "this is no executable, only some words of text\n")
    expect(lipo_archs(f"{m}/plain-text") is None, "plain text isn't Mach-O")

    entries = []
    for name in sorted(os.listdir(m)):
        path = f"{m}/{name}"
        archs = lipo_archs(path)
        entry = {"file": f"macho/{name}"}
        if archs is None:
            entry["error"] = "notMachO"
            entry["dylibs"], entry["weakDylibs"] = [], []
        else:
            entry["archs"], entry["archClass"] = archs, classify(archs)
            entry["dylibs"], entry["weakDylibs"] = dylibs_of(path)
        entries.append(entry)
    return entries


def info_plist(path, values, binary=False):
    data = plistlib.dumps(values, fmt=plistlib.FMT_BINARY if binary else plistlib.FMT_XML)
    write(path, data)


def make_framework(b, frameworks, name, source, arch, *flags):
    """A framework in the usual layout: the top file and Current are links into Versions/A."""
    root = f"{frameworks}/{name}.framework"
    b.link(f"{root}/Versions/A/{name}", source, arch, *flags, dylib=True,
           install_name=f"@rpath/{name}.framework/Versions/A/{name}")
    os.symlink("A", f"{root}/Versions/Current")
    os.symlink(f"Versions/Current/{name}", f"{root}/{name}")
    return f"{root}/Versions/A/{name}"


def build_bundles(b, out):
    apps = f"{out}/Applications"
    m = f"{out}/macho"
    bundles = {}

    def bundle(folder, plist=None, binary=False, exe_from=None, exe_name=None):
        path = f"{apps}/{folder}"
        os.makedirs(f"{path}/Contents/MacOS", exist_ok=True)
        if plist is not None:
            info_plist(f"{path}/Contents/Info.plist", plist, binary)
        if exe_from is not None:
            shutil.copy(exe_from, f"{path}/Contents/MacOS/{exe_name}")
        return path

    def expected(folder, name, exe, archs_of=None, bundle_id=None, version=None, minimum=None, gl=False,
                 cl=False, receipt=False, drivers=()):
        archs = lipo_archs(archs_of) if archs_of else []
        entry = {"path": f"Applications/{folder}", "name": name, "executable": exe, "archs": archs or [],
                 "archClass": classify(archs or []),
                 "traits": {"usesOpenGL": gl, "usesOpenCL": cl, "appStoreReceipt": receipt,
                            "drivers": sorted(drivers)}}
        for key, value in (("bundleID", bundle_id), ("version", version), ("minimumSystemVersion", minimum)):
            if value is not None:
                entry[key] = value
        bundles[f"Applications/{folder}"] = entry

    # An Intel-only application that links OpenGL, with an XML Info.plist.
    p = bundle("Alpha.app", {"CFBundleName": "Alpha", "CFBundleExecutable": "Alpha",
                             "CFBundleIdentifier": "com.example.alpha", "CFBundleShortVersionString": "2.1",
                             "CFBundleVersion": "210", "LSMinimumSystemVersion": "10.13"},
               exe_from=f"{m}/x86_64-opengl", exe_name="Alpha")
    expect(("LC_LOAD_DYLIB", "/System/Library/Frameworks/OpenGL.framework/Versions/A/OpenGL")
           in otool_dylibs(f"{p}/Contents/MacOS/Alpha"), "OpenGL link")
    expected("Alpha.app", "Alpha", "Alpha", f"{p}/Contents/MacOS/Alpha", "com.example.alpha", "2.1", "10.13", gl=True)

    # Universal, binary Info.plist, arm64 standing before x86_64; the Intel slice is the one read.
    p = bundle("Universal.app", {"CFBundleDisplayName": "Universal Tool", "CFBundleExecutable": "Universal",
                                 "CFBundleIdentifier": "com.example.universal", "CFBundleVersion": "7"},
               binary=True, exe_from=f"{m}/fat-arm64-x86_64", exe_name="Universal")
    expected("Universal.app", "Universal Tool", "Universal", f"{p}/Contents/MacOS/Universal",
             "com.example.universal", "7", gl=True)

    # Apple silicon only; a display name that is a number falls through to CFBundleName.
    p = bundle("Silicon.app", {"CFBundleDisplayName": 42, "CFBundleName": "Silicon Native",
                               "CFBundleExecutable": "Silicon", "CFBundleIdentifier": "com.example.silicon",
                               "CFBundleShortVersionString": 3},
               binary=True, exe_from=f"{m}/arm64-weak-opencl", exe_name="Silicon")
    expected("Silicon.app", "Silicon Native", "Silicon", f"{p}/Contents/MacOS/Silicon", "com.example.silicon")

    # Doesn't link OpenCL itself; its embedded framework does, and links OpenGL only weakly.
    p = bundle("Renderer.app", {"CFBundleExecutable": "Renderer", "CFBundleIdentifier": "com.example.renderer"})
    engine = make_framework(b, f"{p}/Contents/Frameworks", "Engine", "engine.c", "arm64", "-framework", "OpenCL",
                            "-weak_framework", "OpenGL")
    engine_links = otool_dylibs(engine)
    expect(("LC_LOAD_DYLIB", "/System/Library/Frameworks/OpenCL.framework/Versions/A/OpenCL") in engine_links
           and ("LC_LOAD_WEAK_DYLIB", "/System/Library/Frameworks/OpenGL.framework/Versions/A/OpenGL")
           in engine_links, "embedded framework links")
    b.link(f"{p}/Contents/MacOS/Renderer", "uses-engine.c", "arm64", engine, "-rpath",
           "@executable_path/../Frameworks")
    expect(("LC_LOAD_DYLIB", "@rpath/Engine.framework/Versions/A/Engine")
           in otool_dylibs(f"{p}/Contents/MacOS/Renderer"), "@rpath link")
    expected("Renderer.app", "Renderer", "Renderer", f"{p}/Contents/MacOS/Renderer", "com.example.renderer", cl=True)

    # Its framework is a link to another bundle's: not looked into.
    p = bundle("Borrower.app", {"CFBundleExecutable": "Borrower"})
    os.makedirs(f"{p}/Contents/Frameworks")
    os.symlink("../../Renderer.app/Contents/Frameworks/Engine.framework", f"{p}/Contents/Frameworks/Engine.framework")
    shutil.copy(f"{apps}/Renderer.app/Contents/MacOS/Renderer", f"{p}/Contents/MacOS/Borrower")
    expected("Borrower.app", "Borrower", "Borrower", f"{p}/Contents/MacOS/Borrower")

    # An embedded dylib that re-exports AGL.
    p = bundle("Kitted.app", {"CFBundleExecutable": "Kitted"})
    os.makedirs(f"{p}/Contents/Frameworks")
    kit = b.link(f"{p}/Contents/Frameworks/libKit.dylib", "kit.c", "x86_64", "-reexport_framework", "AGL",
                 dylib=True, install_name="@rpath/libKit.dylib")
    b.link(f"{p}/Contents/MacOS/Kitted", "uses-kit.c", "x86_64", kit, "-rpath", "@executable_path/../Frameworks")
    expected("Kitted.app", "Kitted", "Kitted", f"{p}/Contents/MacOS/Kitted", gl=True)

    # A library named "OpenGL.framework/..." with no "/" before it is no OpenGL.
    p = bundle("Lookalike.app", {"CFBundleExecutable": "Lookalike"}, exe_from=f"{m}/relative-opengl",
               exe_name="Lookalike")
    expected("Lookalike.app", "Lookalike", "Lookalike", f"{p}/Contents/MacOS/Lookalike")

    p = bundle("Legacy.app", {"CFBundleExecutable": "Legacy"}, exe_from=f"{m}/i386.o", exe_name="Legacy")
    expected("Legacy.app", "Legacy", "Legacy", f"{p}/Contents/MacOS/Legacy")
    p = bundle("Haswell.app", {"CFBundleExecutable": "Haswell"}, exe_from=f"{m}/fat-x86_64h-arm64e",
               exe_name="Haswell")
    expected("Haswell.app", "Haswell", "Haswell", f"{p}/Contents/MacOS/Haswell")

    # Damage: garbage Info.plist and executable; garbage Info.plist with a good executable; no Info.plist.
    p = bundle("Damaged.app")
    write(f"{p}/Contents/Info.plist", b"<?xml version=\"1.0\"?><plist><dict><key>CFBundle")
    write(f"{p}/Contents/MacOS/Damaged", b"#!/bin/sh\necho not a binary\n")
    expected("Damaged.app", "Damaged", "Damaged")
    p = bundle("Rescued.app", exe_from=f"{m}/x86_64h.o", exe_name="Rescued")
    write(f"{p}/Contents/Info.plist", b"bplist00\xff\xff\xff")
    expected("Rescued.app", "Rescued", "Rescued", f"{p}/Contents/MacOS/Rescued")
    p = bundle("NoPlist.app", exe_from=f"{m}/arm64e.o", exe_name="NoPlist")
    expected("NoPlist.app", "NoPlist", "NoPlist", f"{p}/Contents/MacOS/NoPlist")

    # An executable name with "/" is never opened; a link out of the bundle is read for its
    # slices but refused by the library check.
    bundle("Escape.app", {"CFBundleExecutable": "../../../macho/x86_64-opengl"})
    expected("Escape.app", "Escape", "../../../macho/x86_64-opengl")
    p = bundle("Outbound.app", {"CFBundleExecutable": "Outbound"})
    os.symlink("../../../../macho/x86_64-opengl", f"{p}/Contents/MacOS/Outbound")
    expected("Outbound.app", "Outbound", "Outbound", f"{p}/Contents/MacOS/Outbound")

    # A receipt, and drivers at the depths that count and those that don't.
    p = bundle("Store.app", {"CFBundleExecutable": "Store", "CFBundleIdentifier": "com.example.store"},
               exe_from=f"{m}/fat-x86_64-arm64", exe_name="Store")
    write(f"{p}/Contents/_MASReceipt/receipt", b"receipt")
    for folder in ("Library/Extensions/Driver.KEXT", "Library/A/B/C/Deep.systemextension",
                   "Library/A/B/C/D/TooDeep.kext", "Resources/Helper.dext", "Resources/Sub/Hidden.kext",
                   "Library/Extensions/Plugin.bundle/Inner.kext"):
        os.makedirs(f"{p}/Contents/{folder}")
    os.symlink("Extensions/Driver.KEXT", f"{p}/Contents/Library/Linked.kext")
    expected("Store.app", "Store", "Store", f"{p}/Contents/MacOS/Store", "com.example.store", gl=True, receipt=True,
             drivers=["Driver.KEXT", "Deep.systemextension", "Helper.dext"])

    # Apple's own, left out unless asked for.
    p = bundle("Clock.app", {"CFBundleExecutable": "Clock", "CFBundleIdentifier": "com.apple.clock"},
               exe_from=f"{m}/arm64-weak-opencl", exe_name="Clock")
    expected("Clock.app", "Clock", "Clock", f"{p}/Contents/MacOS/Clock", "com.apple.clock")

    # Found only with depth 2; bundles inside a package never; links and capitals never.
    os.makedirs(f"{apps}/Utilities")
    p = f"{apps}/Utilities/Nested.app"
    os.makedirs(f"{p}/Contents/MacOS")
    info_plist(f"{p}/Contents/Info.plist", {"CFBundleExecutable": "Nested"})
    shutil.copy(f"{m}/x86_64-opengl", f"{p}/Contents/MacOS/Nested")
    bundles["Applications/Utilities/Nested.app"] = {
        "path": "Applications/Utilities/Nested.app", "name": "Nested", "executable": "Nested",
        "archs": lipo_archs(f"{p}/Contents/MacOS/Nested"), "archClass": "intelOnly",
        "traits": {"usesOpenGL": True, "usesOpenCL": False, "appStoreReceipt": False, "drivers": []}}
    os.makedirs(f"{apps}/Plugins.bundle/Inner.app/Contents")
    os.makedirs(f"{apps}/Shouting.APP/Contents")
    os.symlink("Alpha.app", f"{apps}/Shortcut.app")
    os.symlink("Utilities", f"{apps}/Linked Folder")
    os.makedirs(f"{apps}/.Hidden.app/Contents")
    return bundles


def scans(bundles):
    def ordered(paths):
        return sorted(paths, key=lambda p: bundles[p]["name"].casefold())

    top = [p for p in bundles if p.count("/") == 1]
    not_apple = [p for p in top if not bundles[p].get("bundleID", "").startswith("com.apple.")]
    return [
        {"roots": ["Applications"], "maxDepth": 1, "includeApple": False, "apps": ordered(not_apple)},
        {"roots": ["Applications", "Applications/Utilities", "Applications", "Missing"], "maxDepth": 3,
         "includeApple": True, "apps": ordered(list(bundles))},
    ]


def main():
    if len(sys.argv) != 2:
        fail("usage: make-macho-corpus.py OUTDIR")
    out = os.path.abspath(sys.argv[1])
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    missing = [tool for tool in (CLANG, LD, LIPO, OTOOL, OBJDUMP) if shutil.which(tool) is None]
    if missing:
        json.dump({"unavailable": "toolchain missing: " + ", ".join(missing)}, open(f"{out}/expected.json", "w"))
        return
    b = Builder(out)
    machos = build_machos(b, out)
    bundles = build_bundles(b, out)
    expected = {"machO": machos, "bundles": [bundles[k] for k in sorted(bundles)], "scans": scans(bundles)}
    with open(f"{out}/expected.json.tmp", "w") as f:
        json.dump(expected, f, indent=2, sort_keys=True)
    os.replace(f"{out}/expected.json.tmp", f"{out}/expected.json")


if __name__ == "__main__":
    main()
