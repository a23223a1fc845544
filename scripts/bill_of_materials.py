#!/usr/bin/env python3
"""Writes what an installed package is made of: sbom.spdx.json (SPDX 2.3) with every file of the folder bin and every
library inside, and the folder licences with the terms of each.

Versions are those of scripts/bootstrap.sh. A library that is built there and not known here is an error: its licence
would be missing.
"""

import argparse
import datetime
import hashlib
import json
import os
import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
BOOTSTRAP = ROOT / "scripts" / "bootstrap.sh"
SOURCES = ROOT / "build" / "deps" / "src"
BOOST = ROOT / "build" / "deps" / "x86_64-w64-mingw32" / "include" / "boost"
SYSTEM_DOCUMENTS = pathlib.Path("/usr/share/doc")

PROJECT_LICENCE = "MIT"
LICENCES = {
    "boost": "BSL-1.0",
    "botan": "BSD-2-Clause",
    "cli11": "BSD-3-Clause",
    "libjpeg-turbo": "IJG AND BSD-3-Clause AND Zlib",
    "libvpx": "BSD-3-Clause",
    "libwebm": "BSD-3-Clause",
    "libyuv": "BSD-3-Clause",
    "log4cplus": "Apache-2.0 AND BSD-2-Clause",
    "nlohmann-json3": "MIT",
    "openh264": "BSD-2-Clause",
    "opus": "BSD-3-Clause",
    "tinyxml2": "Zlib",
    "vo-aacenc": "Apache-2.0",
}
NOT_SHIPPED = {"googletest"}
RUN_TIME = {  # part of the compiler, from its packages' own documents
    "gcc-mingw-w64-base": "GPL-3.0-or-later WITH GCC-exception-3.1",
    "mingw-w64-common": "ZPL-2.1 AND MIT",
}


def libraries():
    """Name -> version of every library that bootstrap.sh builds for the package."""
    script = BOOTSTRAP.read_text(encoding="utf-8")
    built = dict(re.findall(r"^(?:\w+=\w+ )?build (\S+) (\S+)", script, re.MULTILINE))
    built["boost"] = re.search(r"install_boost_headers\(\) {\n +local version=(\S+)", script)[1]
    unknown = built.keys() - LICENCES.keys() - NOT_SHIPPED
    if unknown:
        raise SystemExit(f"no licence is known of {', '.join(sorted(unknown))}")
    return {name: version for name, version in sorted(built.items()) if name not in NOT_SHIPPED}


def part(name, version, licence):
    return {"SPDXID": f"SPDXRef-Package-{name}", "name": name, "versionInfo": version,
            "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": licence,
            "licenseDeclared": licence, "copyrightText": "NOASSERTION"}


def shipped_file(package, path):
    content = path.read_bytes()
    return {"SPDXID": "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.-]", "-", path.name),
            "fileName": "./" + path.relative_to(package).as_posix(),
            "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
                          {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()}],
            "licenseConcluded": "NOASSERTION", "copyrightText": "NOASSERTION"}


def verification_code(files):
    """The digest of the files' digests, as SPDX defines it."""
    digests = sorted(file["checksums"][0]["checksumValue"] for file in files)
    return hashlib.sha1("".join(digests).encode()).hexdigest()


def created():
    """The time of the document; SOURCE_DATE_EPOCH makes it the same each time."""
    seconds = os.environ.get("SOURCE_DATE_EPOCH")
    moment = (datetime.datetime.fromtimestamp(int(seconds), datetime.timezone.utc) if seconds
              else datetime.datetime.now(datetime.timezone.utc))
    return moment.strftime("%Y-%m-%dT%H:%M:%SZ")


def document(package, version):
    product = part("ScreenRecordProxy", version, PROJECT_LICENCE)
    parts = [part(name, number, LICENCES[name]) for name, number in libraries().items()]
    parts += [part(name, "NOASSERTION", licence) for name, licence in RUN_TIME.items()]
    files = [shipped_file(package, path) for path in sorted((package / "bin").iterdir()) if path.is_file()]
    code = verification_code(files)
    product |= {"filesAnalyzed": True, "packageVerificationCode": {"packageVerificationCodeValue": code}}
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", product["SPDXID"])]
    relations += [(product["SPDXID"], "CONTAINS", entry["SPDXID"]) for entry in parts + files]
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
            "name": f"ScreenRecordProxy-{version}", "documentNamespace": f"urn:screenrecordproxy:sbom:{version}:{code}",
            "creationInfo": {"created": created(), "creators": ["Tool: bill_of_materials.py"]},
            "packages": [product, *parts], "files": files,
            "relationships": [dict(zip(("spdxElementId", "relationshipType", "relatedSpdxElement"), relation))
                              for relation in relations]}


def copy_licences(target):
    target.mkdir(parents=True, exist_ok=True)
    for name, version in libraries().items():
        terms = BOOST if name == "boost" else SOURCES / f"{name}-{version}" / "debian"
        shutil.copy(terms / "copyright", target / f"{name}.txt")
    for name in RUN_TIME:
        shutil.copy(SYSTEM_DOCUMENTS / name / "copyright", target / f"{name}.txt")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("package", type=pathlib.Path, help="folder that the package was installed into")
    parser.add_argument("--version", required=True, help="the package's version")
    arguments = parser.parse_args()
    copy_licences(arguments.package / "licences")
    text = json.dumps(document(arguments.package, arguments.version), indent=2)
    (arguments.package / "sbom.spdx.json").write_text(text + "\n", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())
