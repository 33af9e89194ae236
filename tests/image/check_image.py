"""Checks of Kolm.sys as a file, and of the import libraries that belong to it.

  check_image.py CHECK BUILD_DIRECTORY [ARGUMENT...]
"""

import bisect
import pathlib
import re
import shutil
import subprocess
import sys

import pefile

GOLDEN = pathlib.Path(__file__).parent
SOURCES = GOLDEN.parent.parent
NOT_IN_LIBRARIES = {"DllInitialize", "DllUnload"}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def expect(condition, message):
    if not condition:
        sys.exit(message)


def expect_equal(found, expected, what):
    expect(found == expected, f"{what}: found {found}, expected {expected}")


def golden(name):
    return (GOLDEN / name).read_text().splitlines()


def exports(build):
    directory = pefile.PE(build / "Kolm.sys").DIRECTORY_ENTRY_EXPORT
    expect_equal(directory.name, b"Kolm.sys", "module name")
    names = [symbol.name.decode() if symbol.name else "" for symbol in directory.symbols]
    expect_equal(names, golden("exports.txt"), "exports")
    expect(not any(symbol.forwarder for symbol in directory.symbols), "an export is forwarded")


def imports(build):
    image = pefile.PE(build / "Kolm.sys")
    names = [
        f"{entry.dll.decode()} {symbol.name.decode()}"
        for entry in image.DIRECTORY_ENTRY_IMPORT
        for symbol in entry.imports
    ]
    expect_equal(sorted(names), golden("imports.txt"), "imports")
    expect(not hasattr(image, "DIRECTORY_ENTRY_DELAY_IMPORT"), "imports on demand")


def size(build):
    bytes = (build / "Kolm.sys").stat().st_size
    print(f"{bytes} bytes")
    expect(bytes <= 4 << 20, f"{bytes} bytes are more than 4 MB")


def variables(build):
    """What is not given its first values again after the last tracker comes from no library."""
    text = (build / "Kolm.map").read_text()
    for name in (".data", ".bss", ".detdat", ".detbss"):
        block = re.search(rf"^\{name} .*?(?=^\.[a-z]+ )", text, re.M | re.S)
        expect(block, f"no section {name} in the map")
        # An input section: its name, where it has been put, its size and its file.
        files = re.findall(r"^ [.\w$]+\s+0x[0-9a-f]+\s+0x0*[1-9a-f][0-9a-f]*\s+(\S+)$", block[0], re.M)
        expect(files, f"nothing in {name}")
        is_library = name.startswith(".det")
        for file in files:
            expect((".a(" in file) == is_library, f"{file} has variables in {name}")


def floating_point(build):
    """The x87 and MMX units, whose state the kernel does not keep for a driver, are used by nothing
    but what writes and reads numbers of type long double, which is never called."""
    symbols = sorted(
        (int(address, 16), name)
        for address, name in re.findall(
            r"^([0-9a-f]+) [tT] (\S+)$", run("x86_64-w64-mingw32-nm", build / "Kolm.sys.debug"), re.M)
    )
    addresses = [address for address, _ in symbols]
    code = run("x86_64-w64-mingw32-objdump", "-d", "--no-show-raw-insn", build / "Kolm.sys")
    found = set()
    wide = set()
    for line in code.splitlines():
        match = re.match(r" *([0-9a-f]+):\s+(.*)", line)
        if not match:
            continue
        name = lambda: symbols[bisect.bisect_right(addresses, int(match[1], 16)) - 1][1]
        if re.match(r"f(?!xsave|xrstor)[a-z0-9]+\b|emms\b", match[2]) or "%mm" in match[2]:
            found.add(name())
        if re.search(r"%[yz]mm", match[2]):
            wide.add(name())
    expect(not wide, f"wide registers in {sorted(wide)}")
    # Mangled, long double is the letter e.
    others = [name for name in found
              if not re.search(r"num_put|money_[pgs]|_M_insertIeE|_M_insert_floatIe|convert_to_v|lsEe$"
                               r"|^strtold$", name)]
    expect(not others, f"x87 or MMX instructions in {sorted(others)}")
    print(f"{len(found)} functions for long double")


def import_libraries(build):
    """Both hold every export but the two that only the loader calls."""
    expected = sorted(set(golden("exports.txt")) - NOT_IN_LIBRARIES)
    for library in ("libKolm.a", "Kolm.lib"):
        symbols = run("llvm-nm", build / library)
        functions = re.findall(r" T (?!__imp_)(\w+)$", symbols, re.M)
        expect_equal(sorted(functions), expected, f"{library}: functions")
        slots = re.findall(r" [IT] __imp_(\w+)$", symbols, re.M)
        expect_equal(sorted(slots), expected, f"{library}: import slots")
        expect(b"Kolm.sys\0" in (build / library).read_bytes(), f"{library}: no module name")


def header(build):
    image = pefile.PE(build / "Kolm.sys")
    optional = image.OPTIONAL_HEADER
    expect_equal(image.FILE_HEADER.Machine, 0x8664, "machine")
    expect_equal(optional.Subsystem, pefile.SUBSYSTEM_TYPE["IMAGE_SUBSYSTEM_NATIVE"], "subsystem")
    version = (optional.MajorSubsystemVersion, optional.MinorSubsystemVersion)
    expect_equal(version, (10, 0), "subsystem version")
    version = (optional.MajorOperatingSystemVersion, optional.MinorOperatingSystemVersion)
    expect_equal(version, (10, 0), "system version")
    for bit in ("NX_COMPAT", "DYNAMIC_BASE", "HIGH_ENTROPY_VA"):
        expect(getattr(optional, f"IMAGE_DLLCHARACTERISTICS_{bit}"), f"{bit} is not set")
    expect(hasattr(image, "DIRECTORY_ENTRY_BASERELOC"), "no relocations")
    expect_equal(optional.SectionAlignment, 4096, "section alignment")
    expect_equal(optional.CheckSum, image.generate_checksum(), "checksum")


def sections(build):
    image = pefile.PE(build / "Kolm.sys")
    names = []
    for section in image.sections:
        name = section.Name.rstrip(b"\0").decode()
        names.append(name)
        writable = section.IMAGE_SCN_MEM_WRITE
        executable = section.IMAGE_SCN_MEM_EXECUTE
        expect(not (writable and executable), f"{name} is writable and executable")
        expect_equal(executable, name == ".text", f"{name} is executable")
        expect(not name.startswith((".debug", "/")), f"{name} is left in the image")
    expect(".text" in names and ".rsrc" in names, f"sections: {names}")
    expect_equal(image.FILE_HEADER.PointerToSymbolTable, 0, "symbol table")


def symbols(build):
    """What was split off names the image's functions and lines."""
    names = run("x86_64-w64-mingw32-nm", build / "Kolm.sys.debug")
    image = pefile.PE(build / "Kolm.sys")
    for symbol in image.DIRECTORY_ENTRY_EXPORT.symbols:
        line = f"{image.OPTIONAL_HEADER.ImageBase + symbol.address:016x} T {symbol.name.decode()}\n"
        expect(line in names, f"no symbol: {line}")
    expect("DW_TAG_compile_unit" in run("llvm-dwarfdump", build / "Kolm.sys.debug"), "no lines")


def version(build, expected):
    image = pefile.PE(build / "Kolm.sys")
    fixed = image.VS_FIXEDFILEINFO[0]
    numbers = [fixed.FileVersionMS >> 16, fixed.FileVersionMS & 0xFFFF, fixed.FileVersionLS >> 16]
    expect_equal(".".join(map(str, numbers)), expected, "file version")
    strings = {
        key: value
        for entry in image.FileInfo[0]
        if hasattr(entry, "StringTable")
        for table in entry.StringTable
        for key, value in table.entries.items()
    }
    expect_equal(strings.get(b"FileVersion"), f"{expected}.0".encode(), "FileVersion")
    expect_equal(strings.get(b"OriginalFilename"), b"Kolm.sys", "OriginalFilename")


def reproducible(build, toolchain, build_type, opencv):
    """A copy of the sources elsewhere, built elsewhere, gives the same bytes, and they name no folder
    of the machine. OpenCV is not built again."""
    image = (build / "Kolm.sys").read_bytes()
    for folder in (SOURCES, build, opencv):
        expect(bytes(str(folder), "utf-8") not in image, f"Kolm.sys names {folder}")
    second = build / "second"
    shutil.rmtree(second, ignore_errors=True)
    ignored = shutil.ignore_patterns("build", "out", ".git")
    shutil.copytree(SOURCES, second / "sources", ignore=ignored)
    toolchain = second / "sources" / pathlib.Path(toolchain).relative_to(SOURCES)
    run("cmake", "-S", second / "sources", "-B", second / "out", "-G", "Ninja",
        "--toolchain", toolchain, f"-DCMAKE_BUILD_TYPE={build_type}",
        f"-DKOLM_OPENCV_FOLDER={opencv}")
    run("cmake", "--build", second / "out", "--target", "kolm")
    for name in ("Kolm.sys", "libKolm.a", "Kolm.lib"):
        same = (build / name).read_bytes() == (second / "out" / name).read_bytes()
        expect(same, f"{name} differs from a second build's")
    shutil.rmtree(second)


class Entry:
    """An entry of the debugging information: tag, attributes as printed, children."""

    def __init__(self, tag, unit):
        self.tag = tag
        self.unit = unit or self
        self.attributes = {}
        self.children = []

    def reference(self, name, entries):
        text = self.attributes.get(name)
        return entries.get(text.split()[0]) if text else None


def debugging_entries(image):
    entries = {}
    path = []
    entry = name = None
    for line in run("llvm-dwarfdump", "--debug-info", image).splitlines():
        if match := re.match(r"(0x[0-9a-f]+):( +)(\w+)", line):
            offset, indent, tag = match.groups()
            depth = len(indent) // 2
            entry = entries[offset] = Entry(tag, path[0] if depth > 0 else None)
            path[depth:] = [entry]
            if depth > 0 and len(path) > 1:
                path[-2].children.append(entry)
        elif match := re.match(r" +(DW_AT_\w+)\t(.*)", line):
            name = match[1]
            entry.attributes[name] = match[2].strip('()"')
        elif entry and name and line.strip():
            entry.attributes[name] += "\n" + line
    return entries


def holds_array(kind, entries):
    if kind is None:
        return False
    if kind.tag == "DW_TAG_array_type":
        return "DW_AT_GNU_vector" not in kind.attributes
    if kind.tag in ("DW_TAG_structure_type", "DW_TAG_class_type", "DW_TAG_union_type"):
        members = [child for child in kind.children if child.tag == "DW_TAG_member"]
        return any(holds_array(child.reference("DW_AT_type", entries), entries) for child in members)
    if kind.tag in ("DW_TAG_const_type", "DW_TAG_volatile_type", "DW_TAG_typedef"):
        return holds_array(kind.reference("DW_AT_type", entries), entries)
    return False


def arrays_on_stack(function, entries):
    """The names of the arrays, those of inlined functions too, that live in the stack frame."""
    for child in function.children:
        if child.tag == "DW_TAG_variable":
            origin = child.reference("DW_AT_abstract_origin", entries) or child
            kind = origin.reference("DW_AT_type", entries)
            location = child.attributes.get("DW_AT_location", "")
            whole = re.search(r"DW_OP_fbreg [-+]?\d+\)?$", location, re.M)
            if whole and holds_array(kind, entries):
                yield origin.attributes.get("DW_AT_name", "?")
        elif child.tag != "DW_TAG_subprogram":
            yield from arrays_on_stack(child, entries)


def code_ranges(function):
    texts = [function.attributes.get(key, "") for key in ("DW_AT_ranges", "DW_AT_low_pc")]
    if pairs := re.findall(r"\[(0x[0-9a-f]+), (0x[0-9a-f]+)\)", texts[0]):
        return [(int(low, 16), int(high, 16)) for low, high in pairs]
    if texts[1]:
        return [(int(texts[1], 16), int(function.attributes["DW_AT_high_pc"], 16))]
    return []


def stack_protection(build, name, debug_name):
    """Every function that keeps an array in its stack frame ends in the check of its cookie."""
    nm = run("x86_64-w64-mingw32-nm", build / debug_name)
    handler = int(re.search(r"^([0-9a-f]+) T __stack_chk_fail$", nm, re.M)[1], 16)
    code = run("x86_64-w64-mingw32-objdump", "-d", "--no-show-raw-insn", build / name)
    calls = [int(at, 16)
             for at, to in re.findall(r"^ *([0-9a-f]+):\s+call +(?:0x)?([0-9a-f]+)", code, re.M)
             if int(to, 16) == handler]
    entries = debugging_entries(build / debug_name)
    text = next(s for s in pefile.PE(build / name).sections if s.Name.startswith(b".text"))
    base = pefile.PE(build / name).OPTIONAL_HEADER.ImageBase + text.VirtualAddress
    protected = 0
    unprotected = []
    for function in entries.values():
        if function.tag != "DW_TAG_subprogram":
            continue
        # The compiler's own libraries are as their package has them.
        if "mingw-w64-crt" in function.unit.attributes.get("DW_AT_name", ""):
            continue
        ranges = [r for r in code_ranges(function) if base <= r[0] < base + text.Misc_VirtualSize]
        if not ranges:
            continue
        arrays = list(arrays_on_stack(function, entries))
        if not arrays:
            continue
        if any(low <= call < high for low, high in ranges for call in calls):
            protected += 1
        else:
            origin = function.reference("DW_AT_abstract_origin", entries) or function
            declaration = origin.reference("DW_AT_specification", entries) or origin
            title = declaration.attributes.get("DW_AT_name")
            unprotected.append(f"{title} is unprotected: {', '.join(arrays)}")
    print(f"{protected} functions with arrays are protected")
    expect(not unprotected, "\n".join(unprotected))
    expect(protected, "no function with an array")


CHECKS = [exports, imports, size, variables, floating_point, import_libraries, header, sections,
          symbols, version, reproducible, stack_protection]

if __name__ == "__main__":
    check = {function.__name__: function for function in CHECKS}[sys.argv[1]]
    check(pathlib.Path(sys.argv[2]).resolve(), *sys.argv[3:])
