#!/usr/bin/env python3
"""Validates JSON objects, one a line on standard input, against the JSON Schema in a file.

Usage: validate-json.py SCHEMA < OBJECTS

Prints one line for each object that the schema refuses. The status is 0 if it accepts all of them,
1 if it refuses one, and 77 if the validator (Debian's python3-jsonschema) is not installed.
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed")
    sys.exit(77)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    refused = 0
    for line in sys.stdin:
        error = next(validator.iter_errors(json.loads(line)), None)
        if error is not None:
            print(f"{error.message}: {line.rstrip()}")
            refused = 1
    return refused


sys.exit(main())
