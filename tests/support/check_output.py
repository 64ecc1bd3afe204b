"""Checks an output of the command, on standard input, with parsers of other projects.

check_output.py schema FILE    a document, with the JSON Schema in FILE, which must name all of its keys
check_output.py metrics        Prometheus text
check_output.py openmetrics    OpenMetrics text
check_output.py names FILE...  the names of metrics in rules and dashboards
check_output.py spdx           the package's statement of what is linked in
"""

import json
import os
import re
import subprocess
import sys


def objects(value):
    if isinstance(value, dict):
        yield value
    for inner in value.values() if isinstance(value, dict) else value if isinstance(value, list) else ():
        yield from objects(inner)


def check_schema(path):
    import jsonschema

    schema = json.loads(read(path))
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
    promtool = os.path.join(os.path.dirname(__file__), "../../build/check/usr/bin/promtool")
    subprocess.run([promtool, "check", "metrics"], check=True)


def check_openmetrics():
    from prometheus_client.openmetrics.parser import text_fd_to_metric_families

    families = list(text_fd_to_metric_families(sys.stdin))
    assert families and all(family.documentation for family in families)
    assert all(family.name.endswith(("_bytes", "_ratio")) == bool(family.unit) for family in families)


def check_names(paths):
    names = set(re.findall(r"^disk_info_\w+", read(os.path.join(os.path.dirname(__file__), "metrics.txt")), re.M))
    for path in paths:
        used = set(re.findall(r"\bdisk_info_\w+", read(path)))
        assert used and used <= names, f"{path}: {used - names or 'no metrics'}"
        assert not path.endswith(".json") or json.loads(read(path))


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def check_spdx():
    document = json.load(sys.stdin)
    assert document["spdxVersion"] == "SPDX-2.3" and document["dataLicense"] == "CC0-1.0"
    assert re.fullmatch(r"\d{4}(-\d\d){2}T\d\d(:\d\d){2}Z", document["creationInfo"]["created"])
    assert document["name"] and document["documentNamespace"] and document["creationInfo"]["creators"]
    ids = [part["SPDXID"] for part in [document] + document["packages"]]
    assert len(set(ids)) == len(ids) and all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", one) for one in ids), ids
    assert all(part["versionInfo"] and part["licenseConcluded"] for part in document["packages"])
    relations = document["relationships"]
    assert sorted(relation["relatedSpdxElement"] for relation in relations) == sorted(ids[1:]), relations
    for name in ("libc6-dev", "libgcc-", "libstdc++-"):
        assert any(part["name"].startswith(name) for part in document["packages"]), f"no {name}"


match sys.argv[1:]:
    case ["schema", path]:
        check_schema(path)
    case ["names", *paths]:
        check_names(paths)
    case [form, *_]:
        {"metrics": check_metrics, "openmetrics": check_openmetrics, "spdx": check_spdx}[form]()
