"""Checks an output of the command, on standard input, with parsers of other projects.

check_output.py schema FILE    a document, with the JSON Schema in FILE, which must name all of its keys
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
    optional = [schema, schema["properties"]["readings"]]
    # Every object admits unknown keys, and all but the document and the readings require their own.
    for part in list(objects(schema)):
        if isinstance(part.get("properties"), dict):
            fields = [name for name in part["properties"] if not name.endswith("_s")]
            assert part in optional or part.get("required") == fields, part
            assert "additionalProperties" not in part, part
            part["additionalProperties"] = False
    jsonschema.Draft202012Validator(schema).validate(json.load(sys.stdin))


def check_metrics():
    from prometheus_client.openmetrics.parser import text_fd_to_metric_families

    families = list(text_fd_to_metric_families(sys.stdin))
    assert families and all(family.documentation for family in families)
    assert all(family.name.endswith(("_bytes", "_ratio")) == bool(family.unit) for family in families)


check_schema(sys.argv[2]) if sys.argv[1] == "schema" else check_metrics()
