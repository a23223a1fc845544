#!/usr/bin/env python3
"""Checks the programs and DLLs of an installed package, as Windows will load them.

Every file: address space layout randomisation with the whole address space, no execution of data, relocations, no
section both writable and executable, nothing imported but what LIBRARIES lists, and no folder of the build machine.
The project's own files besides: no time stamp, the stack protector, the version, a program's manifest, and exactly
the exports listed in tests/package/exports.

With --rebuild: builds them once more in another folder and compares the bytes.
"""

import argparse
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
EXPORTS = ROOT / "tests" / "package" / "exports"
SOURCES = ("CMakeLists.txt", "CMakePresets.json", "agreement", "cmake", "common", "host", "include", "libraries",
           "scripts", "suite", "systemenvironment", "worker")

# On the system's list of known DLLs, which come from the system folder whatever lies beside the program.
KNOWN = {"advapi32", "gdi32", "kernel32", "msvcrt", "ntdll", "ole32", "oleaut32", "shell32", "shlwapi", "user32",
         "ws2_32"}
RUNTIME = {"libgcc_s_seh-1", "libssp-0", "libstdc++-6", "libwinpthread-1"}

# What each file may import. The worker is one file: nothing but known DLLs.
OWN = {
    "KXVCR.exe": KNOWN,
    "kxrecord.exe": KNOWN | RUNTIME | {"bcrypt", "screenrecordproxy", "util", "logtool", "liblog4cplus", "version"},
    "ScreenRecordProxy.dll": KNOWN | RUNTIME | {"util", "ipcmessage", "logtool", "liblog4cplus"},
    "Util.dll": KNOWN | RUNTIME | {"bcrypt"},
    "IPCMessage.dll": KNOWN | RUNTIME,
    "LogTool.dll": KNOWN | RUNTIME | {"liblog4cplus"},
}
OTHERS = {
    "libgcc_s_seh-1.dll": KNOWN | RUNTIME,
    "liblog4cplus.dll": KNOWN | RUNTIME,
    "libssp-0.dll": KNOWN | RUNTIME,
    "libstdc++-6.dll": KNOWN | RUNTIME,
    "libwinpthread-1.dll": KNOWN,
    "openh264.dll": KNOWN,
}
LIBRARIES = OWN | OTHERS
REBUILT = {name: pathlib.Path(name).stem for name in OWN}

RELOCATIONS_STRIPPED = 0x0001
HIGH_ENTROPY, DYNAMIC_BASE, NO_EXECUTE = 0x0020, 0x0040, 0x0100
SECTION_EXECUTABLE, SECTION_WRITABLE = 0x20000000, 0x80000000
EXPORT_TABLE, IMPORT_TABLE, RELOCATION_TABLE = 0, 1, 5
VERSION_RECORD = struct.pack("<II", 0xFEEF04BD, 0x00010000)  # signature and version of VS_FIXEDFILEINFO
MANIFEST = (b'level="asInvoker"', b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}", b">PerMonitorV2<", b">UTF-8<",
            b'longPathAware xmlns="http://schemas.microsoft.com/SMI/2016/WindowsSettings">true<')
SMASHED = b"stack smashing detected"  # the protector's own text, in a program that carries it


class Image:
    """A 64-bit portable executable; see the PE format for the offsets."""

    def __init__(self, path):
        self.data = path.read_bytes()
        start = self._number("<I", 0x3C)
        if self.data[start:start + 4] != b"PE\0\0":
            raise ValueError(f"{path.name} is no portable executable")
        _, sections, self.time_stamp, _, _, optional_size, self.flags = struct.unpack_from(
            "<HHIIIHH", self.data, start + 4)
        optional = start + 24
        if self._number("<H", optional) != 0x20B:
            raise ValueError(f"{path.name} is not 64-bit")
        self.dll_flags = self._number("<H", optional + 70)
        self.tables = [struct.unpack_from("<II", self.data, optional + 112 + 8 * index)
                       for index in range(self._number("<I", optional + 108))]
        self.sections = []
        for index in range(sections):
            name, size, address, raw_size, raw, _, _, _, flags = struct.unpack_from(
                "<8sIIIIIIII", self.data, optional + optional_size + 40 * index)
            self.sections.append((name.rstrip(b"\0").decode(), address, max(size, raw_size), raw, flags))

    def _number(self, form, offset):
        return struct.unpack_from(form, self.data, offset)[0]

    def _offset(self, address):
        for _, start, size, raw, _ in self.sections:
            if start <= address < start + size:
                return raw + address - start
        raise ValueError(f"no section holds the address {address:#x}")

    def _text(self, address):
        offset = self._offset(address)
        return self.data[offset:self.data.index(b"\0", offset)].decode("ascii")

    def imports(self):
        """Library name without ending, in lower case -> names of its functions."""
        found = {}
        address = self.tables[IMPORT_TABLE][0]
        offset = self._offset(address) if address else len(self.data)
        while address and any(self.data[offset:offset + 20]):
            names, _, _, library, addresses = struct.unpack_from("<IIIII", self.data, offset)
            functions = found.setdefault(self._text(library).lower().removesuffix(".dll"), set())
            entry = self._offset(names or addresses)
            while value := self._number("<Q", entry):
                if not value >> 63:  # not imported by number
                    functions.add(self._text((value & 0x7FFFFFFF) + 2))
                entry += 8
            offset += 20
        return found

    def exports(self):
        address = self.tables[EXPORT_TABLE][0]
        if not address:
            return []
        table = self._offset(address)
        count, names = self._number("<I", table + 24), self._number("<I", table + 32)
        return sorted(self._text(self._number("<I", self._offset(names) + 4 * index)) for index in range(count))


def faults_of_every_file(image, allowed, folders):
    if image.flags & RELOCATIONS_STRIPPED or not image.tables[RELOCATION_TABLE][1]:
        yield "has no relocations"
    for flag, name in ((DYNAMIC_BASE, "dynamic base"), (HIGH_ENTROPY, "high entropy"),
                       (NO_EXECUTE, "no execution of data")):
        if not image.dll_flags & flag:
            yield f"is linked without {name}"
    for name, *_, flags in image.sections:
        if flags & SECTION_EXECUTABLE and flags & SECTION_WRITABLE:
            yield f"has the section {name}, writable and executable"
    for library in sorted(set(image.imports()) - allowed):
        yield f"imports {library}.dll"
    for folder in folders:
        for form in (folder, folder.replace("/", "\\")):
            for encoding in ("utf-8", "utf-16-le"):
                if form.encode(encoding) in image.data:
                    yield f"names the folder {form}"


def faults_of_own_file(name, image, version):
    if image.time_stamp:
        yield f"carries the time stamp {image.time_stamp:#x}"
    protected = any("__stack_chk_fail" in functions for functions in image.imports().values())
    if not protected and SMASHED not in image.data:
        yield "has no stack protector"
    record = image.data.find(VERSION_RECORD)
    high, low = struct.unpack_from("<II", image.data, record + 8) if record >= 0 else (0, 0)
    if (told := f"{high >> 16}.{high & 0xFFFF}.{low >> 16}") != version:
        yield f"says that its version is {told} instead of {version}"
    if name.endswith(".exe"):
        yield from (f"has no {part.decode()} in a manifest" for part in MANIFEST if part not in image.data)
    listed = EXPORTS / f"{pathlib.Path(name).stem}.txt"
    intended = listed.read_text(encoding="ascii").split() if listed.exists() else []
    exported = image.exports()
    yield from (f"exports {symbol}, which is not listed" for symbol in exported if symbol not in intended)
    yield from (f"does not export {symbol}" for symbol in intended if symbol not in exported)


def check(folder, build):
    """Yields every fault of the programs and DLLs in a folder."""
    machine = {str(ROOT), str(build.resolve()), str(pathlib.Path(os.path.realpath(ROOT / "build" / "deps")).parent)}
    version = cached(build, "CMAKE_PROJECT_VERSION")
    present = {path.name for path in folder.iterdir() if path.suffix.lower() in (".exe", ".dll")}
    yield from (f"{name} is missing" for name in sorted(LIBRARIES.keys() - present))
    yield from (f"{name} is shipped, but not listed" for name in sorted(present - LIBRARIES.keys()))
    for name in sorted(present & LIBRARIES.keys()):
        image = Image(folder / name)
        yield from (f"{name} {fault}" for fault in faults_of_every_file(image, LIBRARIES[name], sorted(machine)))
        if name in OWN:
            yield from (f"{name} {fault}" for fault in faults_of_own_file(name, image, version))


def cached(build, name):
    """The value of one entry of a build's CMakeCache.txt."""
    for line in (build / "CMakeCache.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith(f"{name}:"):
            return line.partition("=")[2]
    return ""


def rebuild(build, work):
    """Yields every file that is not the same when it is built in another folder."""
    source = work / "source"
    for name in SOURCES:
        origin = ROOT / name
        (shutil.copytree if origin.is_dir() else shutil.copy)(origin, source / name if origin.is_dir() else source)
    (source / "build").mkdir()
    (source / "build" / "deps").symlink_to(os.path.realpath(ROOT / "build" / "deps"))
    second = source / "build" / build.name
    environment = {**os.environ, "CCACHE_BASEDIR": str(source)} if "CCACHE_BASEDIR" in os.environ else None
    launcher = cached(build, "CMAKE_CXX_COMPILER_LAUNCHER")
    for command in (["cmake", "--preset", build.name, "-Wno-dev", "-DKX_BUILD_TESTS=OFF", "-DKX_BUILD_BENCHMARKS=OFF",
                     f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}"],
                    ["cmake", "--build", str(second), "--target", *REBUILT.values()]):
        result = subprocess.run(command, cwd=source, env=environment, capture_output=True, text=True, check=False)
        if result.returncode:
            raise RuntimeError(f"{' '.join(command)} failed:\n{result.stdout}{result.stderr}")
    for name in REBUILT:
        if (build / "bin" / name).read_bytes() != (second / "bin" / name).read_bytes():
            yield f"{name} has other bytes when it is built in another folder"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build's folder, named after its preset")
    what = parser.add_mutually_exclusive_group(required=True)
    what.add_argument("--installed", type=pathlib.Path, help="folder with the installed programs and DLLs")
    what.add_argument("--rebuild", action="store_true", help="build again elsewhere and compare")
    arguments = parser.parse_args()
    if arguments.rebuild:
        if hasattr(os, "nice"):
            os.nice(19)  # tests that hold the library to the clock run beside it
        with tempfile.TemporaryDirectory() as work:
            pathlib.Path(work, "source").mkdir()
            faults = list(rebuild(arguments.build.resolve(), pathlib.Path(work)))
    else:
        faults = list(check(arguments.installed, arguments.build))
    for fault in faults:
        print(fault)
    print(f"{len(faults)} faults")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
