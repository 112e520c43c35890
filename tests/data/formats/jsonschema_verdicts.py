#!/usr/bin/env python3
"""Independent verdicts on output-format descriptions: python3-jsonschema against the installed schema.

Usage: jsonschema_verdicts.py SCHEMA_DIR FILE...   prints "valid" or "invalid" and the file, one a line.
Unicode escapes are replaced by "." before parsing, exactly as the plug-in's validator does.
"""
import json
import pathlib
import re
import sys

import warnings

import jsonschema

warnings.filterwarnings("ignore", category=DeprecationWarning)


def main():
    schema_dir = pathlib.Path(sys.argv[1]).resolve()
    schema = json.loads((schema_dir / "vorn-format.json").read_text())
    validator_class = jsonschema.Draft4Validator
    validator_class.check_schema(schema)
    resolver = jsonschema.RefResolver(base_uri=schema_dir.as_uri() + "/", referrer=schema)
    validator = validator_class(schema, resolver=resolver)
    for name in sys.argv[2:]:
        text = re.sub(r"\\u[0-9a-fA-F]{4}", ".", pathlib.Path(name).read_text())
        try:
            document = json.loads(text)
            verdict = "valid" if validator.is_valid(document) else "invalid"
        except json.JSONDecodeError:
            verdict = "invalid"
        print(verdict, name)


if __name__ == "__main__":
    main()
