"""The protocol pages: their examples happen so, to the byte, on the reference gateway."""
import hashlib
import unittest

from lan_codec import KEYS, encrypt
from protocol_pages import PAGES, Player, Protocol, blocks, parse, read_page, start_gateway


class Pages(unittest.TestCase):
    def setUp(self):
        self.protocol = Protocol()
        if self.protocol.keys["3"][1] != KEYS[3]:
            self.skipTest("the pages have the public key seeds, these programs others")

    def test_keys_and_their_vectors_are_right(self):
        for seed, key, braces, nothing in self.protocol.keys.values():
            self.assertEqual(key, hashlib.md5(seed.encode()).digest())
            self.assertEqual((braces, nothing), (encrypt(key, b"{}").hex(), encrypt(key, b"").hex()))

    def play(self, gateway, options, lines):
        player = Player(self, self.protocol, gateway, options)
        try:
            player.play(parse(lines))
        finally:
            player.close()

    def test_examples_happen_as_they_stand_there(self):
        for page in PAGES:
            examples = blocks(read_page(page), "exchange")
            self.assertTrue(examples, f"expected examples in {page}")
            with start_gateway(self.protocol, []) as gateway:
                for options, lines in examples:
                    if not options:
                        with self.subTest(page, lines=lines[0]):
                            self.play(gateway, options, lines)
            for options, lines in examples:
                if options:
                    with self.subTest(page, options=options, lines=lines[0]), \
                            start_gateway(self.protocol, options) as gateway:
                        self.play(gateway, options, lines)


if __name__ == "__main__":
    unittest.main()
