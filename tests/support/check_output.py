"""Checks an output of the command, on standard input, with parsers of other projects, and files.

check_output.py schema FILE    a document, with the JSON Schema in FILE, which must name all of its keys
check_output.py metrics        Prometheus text
check_output.py openmetrics    OpenMetrics text
check_output.py fleet FILE...  rules and dashboards: alerts fire as in rules_test.yml, named metrics exist
check_output.py protocol DEFINITION PAGE   the page shows the whole definition
check_output.py spdx           the package's statement of what is linked in
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

HERE = pathlib.Path(__file__).parent
PROMTOOL = shutil.which("promtool") or HERE / "../../build/check/usr/bin/promtool"


def objects(value):
    if isinstance(value, dict):
        yield value
    for inner in value.values() if isinstance(value, dict) else value if isinstance(value, list) else ():
        yield from objects(inner)


def check_schema(path):
    import jsonschema

    schema = json.loads(pathlib.Path(path).read_text("utf-8"))
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


def check_metrics(_):
    subprocess.run([PROMTOOL, "check", "metrics"], check=True)


def check_openmetrics(_):
    from prometheus_client.openmetrics.parser import text_fd_to_metric_families

    families = list(text_fd_to_metric_families(sys.stdin))
    assert families and all(family.documentation for family in families)
    assert all(family.name.endswith(("_bytes", "_ratio")) == bool(family.unit) for family in families)


def check_fleet(*paths):
    subprocess.run([PROMTOOL, "test", "rules", HERE / "rules_test.yml"], check=True)
    names = set(re.findall(r"^disk_info_\w+", (HERE / "metrics.txt").read_text("utf-8"), re.M))
    for path in paths:
        used = set(re.findall(r"\bdisk_info_\w+", pathlib.Path(path).read_text("utf-8")))
        assert used and used <= names, f"{path}: {used - names or 'no metrics'}"


def check_protocol(definition, page):
    shown = textwrap.dedent("".join(re.findall(r"(?:^    .*\n|^\n)", pathlib.Path(page).read_text("utf-8"), re.M)))
    text = pathlib.Path(definition).read_text("utf-8")
    assert text[text.index("interface ") :] in shown, "they differ"


def check_spdx():
    document = json.load(sys.stdin)
    ids = [part["SPDXID"] for part in [document] + document["packages"]]
    assert len(set(ids)) == len(ids) and all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", one) for one in ids), ids
    assert all(part["versionInfo"] and part["licenseConcluded"] for part in document["packages"]), document
    assert sorted(one["relatedSpdxElement"] for one in document["relationships"]) == sorted(ids[1:]), document
    for name in ("libc6-dev", "libgcc-", "libstdc++-"):
        assert any(part["name"].startswith(name) for part in document["packages"]), f"no {name}"


globals()["check_" + sys.argv[1]](*sys.argv[2:])
