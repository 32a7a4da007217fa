"""Calls ozuctl in a box and holds its JSON against the schemas kept with the tool."""

import json

import jsonschema

from pytest_ozu.build import CHECKOUT as ROOT

SCHEMAS = ROOT / "tools" / "ozuctl" / "schema"


def schema(name):
    found = json.loads((SCHEMAS / f"{name}.json").read_text())
    jsonschema.validators.validator_for(found).check_schema(found)
    return found


def validate(name, document):
    jsonschema.validate(document, schema(name))


def run(box, *arguments, status=0):
    """Runs ozuctl; the exit status must be as given."""
    done = box.run(box.program("ozuctl", *arguments))
    assert done.returncode == status, f"ozuctl {arguments}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done


def ask(box, schema_name, *arguments, status=0):
    """The JSON document of a command, checked against its schema."""
    document = json.loads(run(box, "--json", *arguments, status=status).stdout)
    validate(schema_name, document)
    return document


def coded(code, name):
    return {"code": code, "name": name}
