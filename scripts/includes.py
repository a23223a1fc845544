#!/usr/bin/env python3
"""Checks that files include the header of the C++ library for each of the library's names that they use.

Every header does, and every source that is not a test's, a benchmark's or a fuzz target's: those take from their
fixtures what the fixtures need themselves. A source may leave to the header that it belongs to what that header
includes. --fix adds what is missing; the formatter sorts it.
"""
import argparse
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Names of namespace std by header; the ones that several headers declare stand where they are not mere by-products.
NAMES = {
    "algorithm": "all_of any_of clamp copy copy_n count_if fill fill_n find find_if is_sorted lower_bound max "
                 "max_element min min_element minmax mismatch none_of ranges remove_if reverse rotate search sort "
                 "stable_sort transform upper_bound",
    "array": "array to_array",
    "atomic": "atomic atomic_flag atomic_ref atomic_thread_fence memory_order_acq_rel memory_order_acquire "
              "memory_order_relaxed memory_order_release memory_order_seq_cst",
    "barrier": "barrier",
    "bit": "bit_cast bit_width countl_zero countr_zero endian has_single_bit popcount",
    "charconv": "from_chars to_chars",
    "chrono": "chrono chrono_literals",
    "cmath": "ceil cos exp floor hypot isfinite ldexp llround log log10 log2 lrint lround pow round sin sqrt",
    "complex": "complex",
    "condition_variable": "condition_variable condition_variable_any",
    "cstddef": "byte max_align_t nullptr_t ptrdiff_t size_t to_integer",
    "cstdint": "int16_t int32_t int64_t int8_t intptr_t uint16_t uint32_t uint64_t uint8_t uintmax_t uintptr_t",
    "cstdio": "FILE fclose fflush fopen fprintf fputs fread fwrite getchar printf puts snprintf sscanf vsnprintf",
    "cstdlib": "abort atoi calloc exit free getenv malloc realloc strtod strtol strtoul",
    "cstring": "memcmp memcpy memmove memset strcat strchr strcmp strlen strrchr strstr",
    "cwchar": "wcschr wcscmp wcslen wcsncmp wcsncpy wcsrchr wcstol wcstoul wmemcpy",
    "deque": "deque",
    "exception": "current_exception exception exception_ptr rethrow_exception terminate",
    "filesystem": "filesystem",
    "fstream": "fstream ifstream ofstream wifstream",
    "functional": "cref function greater hash invoke less ref reference_wrapper",
    "future": "async future future_status promise",
    "initializer_list": "initializer_list",
    "iomanip": "setfill setw",
    "iostream": "cerr cin cout",
    "iterator": "back_inserter inserter istreambuf_iterator",
    "latch": "latch",
    "limits": "numeric_limits",
    "list": "list",
    "locale": "locale numpunct",
    "map": "map multimap",
    "memory": "enable_shared_from_this make_shared make_unique shared_ptr unique_ptr weak_ptr",
    "mutex": "call_once lock_guard mutex once_flag recursive_mutex scoped_lock unique_lock",
    "new": "align_val_t bad_alloc nothrow nothrow_t",
    "numbers": "numbers",
    "numeric": "accumulate gcd iota lcm midpoint",
    "optional": "make_optional nullopt optional",
    "queue": "priority_queue queue",
    "random": "mt19937 mt19937_64 normal_distribution random_device uniform_int_distribution uniform_real_distribution",
    "regex": "regex regex_match sregex_iterator",
    "semaphore": "binary_semaphore counting_semaphore",
    "set": "multiset set",
    "source_location": "source_location",
    "span": "as_bytes as_writable_bytes span",
    "sstream": "istringstream ostringstream stringstream wostringstream",
    "stdexcept": "invalid_argument logic_error out_of_range runtime_error",
    "stop_token": "stop_source stop_token",
    "string": "basic_string char_traits stod stoi stoul stoull string to_string to_wstring u16string u8string wstring",
    "string_view": "string_view u8string_view wstring_view",
    "system_error": "errc error_code make_error_code system_category system_error",
    "thread": "jthread this_thread thread",
    "tuple": "make_tuple tie tuple",
    "type_traits": "conditional_t decay_t invoke_result_t is_base_of_v is_class_v is_pointer_v is_same_v "
                   "is_standard_layout_v is_trivially_copyable_v make_signed_t make_unsigned_t remove_cvref_t "
                   "remove_pointer_t remove_reference_t underlying_type_t",
    "unordered_map": "unordered_map",
    "unordered_set": "unordered_set",
    "utility": "as_const cmp_equal cmp_greater cmp_greater_equal cmp_less cmp_less_equal exchange forward in_range "
               "make_pair move pair unreachable",
    "variant": "get_if holds_alternative monostate variant visit",
    "vector": "vector",
}
HEADER_OF = {name: header for header, names in NAMES.items() for name in names.split()}
# Headers that declare std::size_t as part of what they are for.
OTHER_HEADERS = {"size_t": {"cstdio", "cstdlib", "cstring", "cwchar"}}

FIXTURES_BRING = ("tests/", "benchmarks/", "fuzz/")

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^">\n]+)[">].*\n', re.MULTILINE)
NAME = re.compile(r"(?<![\w:])(?:::)?std::(\w+)")


def own_header(path, text):
    """The header that a source belongs to, if there is one: its first include, and named as the source is."""
    first = INCLUDE.search(text)
    if path.suffix != ".cpp" or first is None or first[1] != '"':
        return None
    if path.stem != pathlib.PurePosixPath(first[2]).stem:
        return None
    for folder in (path.parent, ROOT, ROOT / "include"):
        if (folder / first[2]).is_file():
            return folder / first[2]
    return None


def angle_includes(text):
    return {found[2] for found in INCLUDE.finditer(text) if found[1] == "<"}


def missing(path):
    """Header that a file should include -> the first name that asks for it."""
    text = path.read_text(encoding="utf-8")
    included = angle_includes(text)
    if header := own_header(path, text):
        included |= angle_includes(header.read_text(encoding="utf-8"))
    wanted = {}
    for name in NAME.findall(COMMENT.sub("", text)):
        header = HEADER_OF.get(name)
        if header and header not in included and not OTHER_HEADERS.get(name, set()) & included:
            wanted.setdefault(header, name)
    return wanted


def add(path, headers):
    """Adds includes to the last block of includes that has one of the C++ library, or as a block behind the last."""
    text = path.read_text(encoding="utf-8")
    lines = "".join(f"#include <{header}>\n" for header in sorted(headers))
    includes = list(INCLUDE.finditer(text))
    library = [found for found in includes if found[1] == "<" and found[2] in NAMES]
    if library:
        place = library[-1].end()
    else:
        place = includes[-1].end()
        lines = "\n" + lines
    path.write_text(text[:place] + lines + text[place:], encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--fix", action="store_true", help="add the includes that are missing")
    options = parser.parse_args()
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.h", "*.cpp"], cwd=ROOT,
                            check=True, capture_output=True, text=True)
    findings = 0
    for path in listed.stdout.splitlines():
        if not (ROOT / path).is_file() or path.endswith(".cpp") and path.startswith(FIXTURES_BRING):
            continue
        wanted = missing(ROOT / path)
        findings += len(wanted)
        if options.fix and wanted:
            add(ROOT / path, wanted)
            continue
        for header, name in wanted.items():
            print(f"{path}: std::{name} without <{header}>", file=sys.stderr)
    if options.fix:
        print(f"{findings} includes added")
        return 0
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
