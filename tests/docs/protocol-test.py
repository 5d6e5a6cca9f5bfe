"""Asks services written from docs/protocol.md with the utility, one for each row of its tables.
Usage: protocol-test.py UTILITY PAGE [TEST...]"""

import ast
import json
import os
import re
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
service = __import__("update-service")

UTILITY, PAGE = [os.path.abspath(path) for path in sys.argv[1:3]]
VALUES = ("version", "url", "button", "message")


def read_page():
    with open(PAGE, encoding="utf-8") as stream:
        return stream.read()


def rows(heading):
    """The cells of the table with a heading row, without backticks."""
    table = read_page().split(f"\n{heading}\n", 1)[1].split("\n\n", 1)[0]
    lines = table.split("\n")[1:]
    return [[cell.strip().strip("`") for cell in line.strip("|").split("|")] for line in lines]


def bytes_of(cell):
    """The bytes of a cell with escapes such as \\r\\n."""
    return ast.literal_eval("b'" + cell.replace("'", "\\'") + "'")


def ask(address, *options):
    environment = {"PATH": os.environ["PATH"]}
    result = subprocess.run([UTILITY, "-json", "-quiet", "-service", address, *options],
                            env=environment, capture_output=True, text=True, timeout=30)
    return json.loads(result.stdout)


class Protocol(unittest.TestCase):
    def start(self, reply_to):
        started = service.Service(reply_to)
        self.addCleanup(started.close)
        return started

    def answer_to(self, reply, *options, closes=True):
        started = self.start(lambda fields: (reply, closes))
        answer = ask(started.address, "-product-version", "5.1", *options)
        self.assertEqual(started.failures, [])
        self.assertEqual(len(started.requests), 1)
        return answer

    def test_a_service_from_the_page_answers_the_utility(self):
        started = self.start(service.answer_of_list)
        answer = ask(started.address, "-product", "Quintral Shapes", "-product-version", "5.1")
        self.assertEqual(started.failures, [])
        self.assertEqual(answer["status"], "answered")
        self.assertEqual(answer["version"], "5.2")
        self.assertTrue(answer["newer"])
        self.assertEqual(answer["message"], "Version 5.2 is the newest.\n")

    def test_a_product_that_the_service_does_not_know_is_an_answer_too(self):
        started = self.start(service.answer_of_list)
        answer = ask(started.address, "-product", "Chess", "-product-version", "1")
        self.assertEqual((answer["status"], answer["version"]), ("answered", None))

    def test_the_header_has_the_lines_of_the_page_in_their_order(self):
        for credentials in ([], ["-proxy", ":1", "-proxy-user", "u", "-proxy-pass", "p"]):
            started = self.start(service.answer_of_list)
            ask(started.address, *credentials)
            lines = started.requests[0][0]
            keys = [cell for row in rows("| line | value |")
                    for cell in row[0].replace("`", "").split(", ")]
            self.assertEqual(keys[0], "request line")
            expected = keys[1:] if credentials else keys[1:-1]
            self.assertEqual([line.split(": ")[0] for line in lines[1:]], expected)
            example = read_page().split("## The request")[0]
            for line in lines[1:5]:
                self.assertIn(f"\n    {line}\n", example)
            self.assertIn("Host: 127.0.0.1", lines)

    def test_the_form_has_the_fields_of_the_page_in_their_order(self):
        table = rows("| field | value | example |")
        started = self.start(service.answer_of_list)
        ask(started.address, "-product", "Quintral Shapes", "-product-version", "5.1",
            "-version-name", "5.1 beta", "-os", "Linux", "-os-version", "6.1",
            "-processor-arch", "x86_64")
        expected = [(row[0], row[2].strip("` ").encode()) for row in table]
        self.assertEqual(started.requests[0][2], expected)
        self.assertEqual([name for name, _ in expected], service.FIELDS)

    def test_escapes_are_those_of_the_page(self):
        started = self.start(service.answer_of_list)
        every = bytes(range(1, 256))
        ask(started.address, "-machine-id", every)
        kept = b"0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
        escaped = b"".join(bytes([c]) if c in kept else b"%%%02x" % c for c in every)
        self.assertIn(b"&machine%5fid=" + escaped + b"&", started.requests[0][1])

    def test_values_are_truncated_as_the_page_says(self):
        for value, kept in (("a" * 1100, 1023), (" " * 1100, 1021), ("." * 1100, 341),
                            (" " * 1021 + "ab" * 9, 1023)):
            started = self.start(service.answer_of_list)
            ask(started.address, "-machine-id", value)
            self.assertEqual(dict(started.requests[0][2])["machine_id"], value[:kept].encode())
        sent = re.search(rb"machine%5fid=([^&]*)", started.requests[0][1])[1]
        self.assertEqual(len(sent), 3065)

    def test_the_longest_form_is_shorter_than_the_page_says(self):
        started = self.start(service.answer_of_list)
        longest = " " * 1021 + "ab"
        options = ["product", "productline", "version-name", "os", "os-version", "machine-id",
                   "processor-arch"]
        ask(started.address, "-product-version", "16777216",
            *[word for name in options for word in ("-" + name, longest)])
        self.assertEqual(started.failures, [])
        self.assertLess(len(started.requests[0][1]), service.LONGEST_FORM)

    def test_status_rows(self):
        table = rows("| reply | result | |")
        self.assertGreater(len(table), 10)
        for reply, result, _ in table:
            with self.subTest(reply=reply):
                answer = self.answer_to(bytes_of(reply))
                self.assertEqual(answer["reason"] or answer["status"], result)

    def test_value_rows(self):
        table = rows("| body | result | values | |")
        self.assertGreater(len(table), 10)
        for body, result, values, _ in table:
            with self.subTest(body=body):
                answer = self.answer_to(b"HTTP/1.0 200 OK\r\n\r\n" + bytes_of(body))
                self.assertEqual(answer["reason"] or answer["status"], result)
                found = {key: answer[key] for key in VALUES if answer[key] is not None}
                self.assertEqual(found, json.loads(values))

    def test_version_rows(self):
        table = rows("| client | `Version` | newer |")
        self.assertGreater(len(table), 5)
        for client, version, newer in table:
            with self.subTest(client=client, version=version):
                reply = f"HTTP/1.0 200 OK\r\n\r\nVersion: {version}\nMessage: m"
                answer = self.answer_to(reply.encode(), "-product-version", client)
                words = {True: "yes", False: "no", None: "unknown"}
                self.assertEqual(words[answer["newer"]], newer)

    def test_content_length_does_not_end_the_reply(self):
        reply = b"HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\nMessage: m"
        answer = self.answer_to(reply, "-max-time", "3", closes=False)
        self.assertEqual((answer["status"], answer["message"]), ("timeout", None))

    def test_limits(self):
        start = b"HTTP/1.0 200 OK\r\n"
        for header, body, result in ((256 * 1024 + 1, 0, "too-long"),
                                     (0, 8 * 1024 * 1024 + 1, "too-long"),
                                     (250 * 1024, 8 * 1024 * 1024, "answered")):
            with self.subTest(header=header, body=body):
                reply = start + b"X: " + b"x" * header + b"\r\n\r\n"
                reply += b"Message: m".ljust(body)
                started = self.start(lambda fields, bytes=reply: (bytes, True))
                answer = ask(started.address)
                self.assertEqual(answer["reason"] or answer["status"], result)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
