"""The protocol pages: their examples happen so, to the byte, on the reference gateway."""
import hashlib
import unittest

from lan_codec import KEYS, encrypt
from protocol_pages import PAGES, Protocol, play_pages


class Pages(unittest.TestCase):
    def setUp(self):
        self.protocol = Protocol()
        if self.protocol.keys["3"][1] != KEYS[3]:
            self.skipTest("the pages have the public key seeds, these programs others")

    def test_keys_and_their_vectors_are_right(self):
        for seed, key, braces, nothing in self.protocol.keys.values():
            self.assertEqual(key, hashlib.md5(seed.encode()).digest())
            self.assertEqual((braces, nothing), (encrypt(key, b"{}").hex(), encrypt(key, b"").hex()))

    def test_examples_happen_as_they_stand_there(self):
        played = sum(1 for _ in play_pages(self, self.protocol))
        self.assertGreater(played, len(PAGES), "expected examples on each page")


if __name__ == "__main__":
    unittest.main()
