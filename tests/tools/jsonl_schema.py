"""Holds every line of clksim's JSON lines to docs/clksim-jsonl.schema.json and
each field (by its path, e.g. fields.portState) to one JSON type across them.
One code path writes each kind, so past its first thousand records a kind is
held to it every 25th record: a servo run's tens of thousands of TE samples
cost seconds, not minutes, under the sanitizers."""
import json
import sys

import jsonschema

schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
types, bad, seen = {}, 0, {}


def walk(path, value):
    kind = type(value).__name__
    if types.setdefault(path, kind) != kind:
        print(f"{path}: {kind} here, {types[path]} before")
        return 1
    if isinstance(value, dict) and path.split(".")[-1] not in ("board",):
        return sum(walk(f"{path}.{k}", v) for k, v in value.items())
    return 0


for name in sys.argv[2:]:
    for number, line in enumerate(open(name), 1):
        record = json.loads(line)
        n = seen[record.get("kind")] = seen.get(record.get("kind"), 0) + 1
        if n > 1000 and n % 25:
            continue
        for error in validator.iter_errors(record):
            print(f"{name}:{number}: {error.message}")
            bad += 1
        bad += walk(record.get("kind", "") if record.get("kind") in ("scenario", "summary") else "", record)
sys.exit(1 if bad else 0)
