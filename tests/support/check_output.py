"""Checks an output of the command, on standard input, with parsers of other projects.

check_output.py schema FILE    a document, with the JSON Schema in FILE, which must be strict
check_output.py metrics        OpenMetrics text
"""

import json
import sys


def objects(value):
    if isinstance(value, dict):
        yield value
    for inner in value.values() if isinstance(value, dict) else value if isinstance(value, list) else ():
        yield from objects(inner)


def check_schema(path):
    import jsonschema

    with open(path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    jsonschema.Draft202012Validator(schema).validate(json.load(sys.stdin))
    # Every object rejects unknown keys, and all but the document itself require their own.
    for part in objects(schema):
        if isinstance(part.get("properties"), dict):
            assert part.get("additionalProperties") is False, part
            fields = [name for name in part["properties"] if not name.endswith("_s")]
            assert part is schema or part.get("required") == fields, part


def check_metrics():
    from prometheus_client.openmetrics.parser import text_fd_to_metric_families

    families = list(text_fd_to_metric_families(sys.stdin))
    assert families and all(family.documentation for family in families)
    assert all(family.name.endswith(("_bytes", "_ratio")) == bool(family.unit) for family in families)


check_schema(sys.argv[2]) if sys.argv[1] == "schema" else check_metrics()
