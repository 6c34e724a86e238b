"""Says how many of the gallery's pictures two builds draw alike, and which they do not.

    compare_pictures.py REPORT REPORT       reports in XML of gallery_tests
"""
import sys
import xml.etree.ElementTree


def pictures(report):
    """By name: checksums of the picture as floats and as bytes."""
    root = xml.etree.ElementTree.parse(report).getroot()
    return {case.get("name"): {entry.get("name"): entry.get("value")
                               for entry in case.iter("property")}
            for case in root.iter("testcase")}


def main():
    ours, theirs = map(pictures, sys.argv[1:])
    if ours.keys() != theirs.keys() or not all(ours.values()):
        sys.exit("the reports are of different galleries")
    alike = {kind: [name for name in ours if ours[name][kind] == theirs[name][kind]]
             for kind in ("bytes", "floats")}
    for name in sorted(ours.keys() - alike["bytes"]):
        print(f"{name} has other bytes")
    print(f"{len(alike['bytes'])} of {len(ours)} pictures have the same bytes, "
          f"{len(alike['floats'])} the same floats")


main()
