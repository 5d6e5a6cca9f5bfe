#!/usr/bin/env python3
"""Prints the SPDX document (version 2.3, JSON) of the sources: one package with all its files.

Usage: scripts/spdx.py VERSION TIME <NAMES

NAMES are the files, each ended by a NUL; TIME, in seconds since 1970, is the date of the document.
Every file is under the license of the project, which LICENSE holds. A file that mentions another
license or copyright stops this script: say here what is true of it.
"""
import datetime
import hashlib
import json
import re
import sys

LICENSE = "MIT"
COPYRIGHT = "Copyright (c) 2026 the Quintral authors"

# These hold the license of the project or name licenses for another reason.
KNOWN = {
    "LICENSE": "the license",
    "packaging/debian/copyright": "the license, for Debian",
    "scripts/spdx.py": "looks for such words",
}
NOTICE = re.compile(rb"copyright (\(c\)|\xc2\xa9|[12]\d\d\d)|SPDX-License-Identifier|"
                    rb"permission is hereby granted|(licensed|released) under|"
                    rb"(general|mozilla) public license", re.IGNORECASE)


def describe(name):
    with open(name, "rb") as stream:
        content = stream.read()
    if NOTICE.search(content) and name not in KNOWN:
        sys.exit(f"{name} mentions a license or copyright; see scripts/spdx.py")
    is_license = name in ("LICENSE", "packaging/debian/copyright")
    return {
        "SPDXID": "SPDXRef-File-" + hashlib.sha1(name.encode()).hexdigest(),
        "fileName": "./" + name,
        "checksums": [
            {"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
            {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()},
        ],
        "licenseConcluded": LICENSE,
        "licenseInfoInFiles": [LICENSE if is_license else "NONE"],
        "copyrightText": COPYRIGHT if is_license else "NONE",
    }


def main():
    version, time = sys.argv[1], int(sys.argv[2])
    names = sorted(name for name in sys.stdin.read().split("\0") if name)
    if "LICENSE" not in names:
        sys.exit("spdx.py: the names of the files are expected on standard input")
    files = [describe(name) for name in names]
    sums = "".join(sorted(file["checksums"][0]["checksumValue"] for file in files))
    code = hashlib.sha1(sums.encode()).hexdigest()
    created = datetime.datetime.fromtimestamp(time, datetime.timezone.utc)
    document = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"quintral-{version}",
        "documentNamespace": f"http://www.quintral.example/spdx/quintral-{version}-{code}",
        "creationInfo": {
            "created": f"{created:%Y-%m-%dT%H:%M:%SZ}",
            "creators": ["Organization: Quintral maintainers", "Tool: scripts/spdx.py"],
        },
        "documentDescribes": ["SPDXRef-Package"],
        "packages": [{
            "SPDXID": "SPDXRef-Package",
            "name": "quintral",
            "versionInfo": version,
            "supplier": "Organization: Quintral maintainers",
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": True,
            "packageVerificationCode": {"packageVerificationCodeValue": code},
            "licenseConcluded": LICENSE,
            "licenseDeclared": LICENSE,
            "licenseInfoFromFiles": [LICENSE, "NONE"],
            "copyrightText": COPYRIGHT,
            "hasFiles": [file["SPDXID"] for file in files],
        }],
        "files": files,
    }
    print(json.dumps(document, indent=1))


main()
