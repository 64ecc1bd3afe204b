"""Holds an output of the command, on standard input, against its format.

check_output.py schema FILE    a document against the JSON Schema in FILE, which also has to refuse
                               the document with any key added or a field taken away
check_output.py metrics        OpenMetrics text
"""

import copy
import json
import sys


def objects(value, depth=0):
    if isinstance(value, dict):
        yield value, depth
        for inner in value.values():
            yield from objects(inner, depth + 1)


def check_schema(path):
    import jsonschema

    with open(path, encoding="utf-8") as file:
        validator = jsonschema.Draft202012Validator(json.load(file))
    validator.check_schema(validator.schema)
    document = json.load(sys.stdin)
    validator.validate(document)
    for index, (original, depth) in enumerate(objects(document)):
        if original is not document.get("filesystems"):
            changes = [lambda fields: fields.update(unknown=1)]
            if depth >= 2:
                changes += [lambda fields, k=k: fields.pop(k) for k in original if not k.endswith("_s")]
            for change in changes:
                changed = copy.deepcopy(document)
                change(list(objects(changed))[index][0])
                assert not validator.is_valid(changed), f"the schema allows {changed}"


def check_metrics():
    from prometheus_client.openmetrics.parser import text_fd_to_metric_families

    families = list(text_fd_to_metric_families(sys.stdin))
    assert families and all(family.documentation for family in families)


check_schema(sys.argv[2]) if sys.argv[1] == "schema" else check_metrics()
