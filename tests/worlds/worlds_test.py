"""engr_worlds around an agent with a fault: found, told the same each time, and its story cut down to what matters."""
import os
import re
import subprocess
import unittest

FAULTY = os.path.join(os.environ["ENGR_BIN_DIR"], "engr_worlds_faulty")


def tell(*options):
    done = subprocess.run([FAULTY, *options], capture_output=True, text=True, check=False)
    return done.returncode, done.stdout


class WorldsTest(unittest.TestCase):
    def test_a_fault_is_found_and_its_story_shortened_to_what_matters(self):
        status, told = tell("--seeds", "300")
        self.assertEqual(status, 1, "expected 300 worlds to meet the fault")
        found = re.match(r"seed (\d+), (\d+) steps:\n(.+)\n", told)
        shorter = re.search(r"^shortened to (\d+) steps:\nschedule seed \d+\n((?:  .+: after \d+ ms .+\n)+)(.+)\n",
                            told, re.MULTILINE)
        self.assertTrue(found and shorter, told)
        steps = int(shorter[1])
        self.assertEqual(shorter[2].count("\n"), steps, "expected a line for each step that is left")
        self.assertLess(steps, min(8, int(found[2])), "expected the steps that don't matter to be gone")
        self.assertEqual(*(text[3].split(": ", 1)[-1] for text in (found, shorter)), "expected the same problem")

        status, again = tell("--seed", found[1])
        self.assertEqual((status, again[again.index("seed " + found[1] + ","):]), (1, told),
                         "expected a seed to tell the same again")


if __name__ == "__main__":
    unittest.main()
