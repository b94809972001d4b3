#!/usr/bin/env python3
"""Fails when a public class or free function of the API reference has no description.

Reads Doxygen's XML output (GENERATE_XML). Members of classes are not required to carry one
(obvious accessors need none); classes, structs, unions and functions at namespace level
are. Entities in detail namespaces are not part of the API.

usage: doxygen_check.py XML_DIR
"""
import sys
import xml.etree.ElementTree as ET
from pathlib import Path


def described(node):
    for tag in ("briefdescription", "detaileddescription"):
        d = node.find(tag)
        if d is not None and "".join(d.itertext()).strip():
            return True
    return False


def where(node):
    loc = node.find("location")
    return f"{loc.get('file')}:{loc.get('line')}" if loc is not None else "?"


def main():
    xml_dir = Path(sys.argv[1])
    missing = []
    classes = functions = 0
    for compound in ET.parse(xml_dir / "index.xml").getroot():
        kind, refid = compound.get("kind"), compound.get("refid")
        if kind not in ("class", "struct", "union", "namespace"):
            continue
        name = compound.findtext("name")
        if "detail" in name.split("::"):
            continue
        definition = ET.parse(xml_dir / f"{refid}.xml").getroot().find("compounddef")
        if kind != "namespace":
            if definition.get("prot") in ("private", "protected"):
                continue
            classes += 1
            if not described(definition):
                missing.append(f"{where(definition)}: class {name} has no description")
            continue
        for member in definition.iter("memberdef"):
            if member.get("kind") != "function":
                continue
            functions += 1
            if not described(member):
                missing.append(f"{where(member)}: function {name}::{member.findtext('name')}"
                               f"{member.findtext('argsstring')} has no description")
    for line in sorted(missing):
        print(line)
    print(f"doxygen_check: {classes} classes and {functions} functions, "
          f"{len(missing)} without a description")
    return 1 if missing else 0


sys.exit(main())
