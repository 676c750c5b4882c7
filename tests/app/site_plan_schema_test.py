"""The schema of site plans is one that others can use: it is valid, and takes the example plans."""

import glob
import json
import os
import re
import subprocess
import unittest

import jsonschema
import yaml

ROOT = os.path.join(os.path.dirname(__file__), "..", "..")
APP = os.path.join(os.environ["ENGR_BIN_DIR"], "engr_app")


class SchemaTest(unittest.TestCase):
    def setUp(self):
        self.schema = json.loads(subprocess.run([APP, "site", "schema"], capture_output=True, check=True).stdout)
        jsonschema.Draft7Validator.check_schema(self.schema)

    def test_the_printed_schema_is_the_installed_one(self):
        with open(os.path.join(ROOT, "app", "engr_app", "plan", "site_plan.schema.json"), encoding="utf-8") as file:
            self.assertEqual(json.load(file), self.schema)

    def test_the_examples_fit_and_a_misspelt_one_does_not(self):
        validator = jsonschema.Draft7Validator(self.schema)
        plans = glob.glob(os.path.join(ROOT, "examples", "plans", "*.yaml"))
        self.assertTrue(plans)
        for path in plans:
            with open(path, encoding="utf-8") as file:
                # In YAML the numbers of data points are no texts; in the plan they are.
                plan = json.loads(json.dumps(yaml.safe_load(file)))
            self.assertEqual([one.message for one in validator.iter_errors(plan)], [], path)
            plan["gateways"][0]["chanel"] = 11
            self.assertFalse(validator.is_valid(plan))

    def test_every_setting_of_a_template_is_one_of_a_gateway(self):
        parts = self.schema["definitions"]
        own, shared = parts["gateway"]["properties"], parts["template"]["properties"]
        self.assertEqual({name: own.get(name) for name in shared}, shared)

    def test_the_manual_page_names_every_member(self):
        with open(os.path.join(ROOT, "man", "engr_plan.5.in"), encoding="utf-8") as file:
            words = set(re.findall(r"[\w-]+", file.read()))
        for part in [self.schema, *self.schema["definitions"].values()]:
            self.assertLessEqual(set(part.get("properties", {})), words)

    def test_whatever_is_not_allowed_is_described(self):
        def check(part, place):
            self.assertTrue("$ref" in part or part.get("description"), f"{place} says nothing of what is expected")
            for name, inner in part.get("properties", {}).items():
                check(inner, f"{place}.{name}")
            for name in ("items", "additionalProperties"):
                if isinstance(part.get(name), dict):
                    check(part[name], f"{place}[]")
        for name, part in self.schema["definitions"].items():
            check(part, name)


if __name__ == "__main__":
    unittest.main()
