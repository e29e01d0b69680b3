#!/usr/bin/env python3
"""The other end of the agent's "reporter": takes inventories in packets.

    reporter.py DIRECTORY

The JSON text of the last one becomes inventory.json in the directory. The answer is a packet with the number of
interfaces. It listens on a free port of the loopback interface, and the first line that it prints is its address.
"""
import json
import pathlib
import socketserver
import struct
import sys
import zlib

HOST, LENGTH, JSON, INTERFACES = 1, 2, 3, 4
LARGEST = 1 << 20


def exactly(stream, size):
    data = stream.read(size)
    if len(data) != size:
        raise ValueError("cut short")
    return data


def receive(stream):
    """The values of a tagged packet by their tags."""
    (length,) = struct.unpack(">I", exactly(stream, 4))
    if not 4 <= length <= LARGEST:
        raise ValueError("a packet of %d bytes" % length)
    rest = exactly(stream, length - 4)
    items = []
    while rest:
        (size,) = struct.unpack(">I", rest[:4])
        if len(rest) < 4 + size:
            raise ValueError("an item of %d bytes" % size)
        items.append(rest[4:4 + size])
        rest = rest[4 + size:]
    return {struct.unpack(">I", tag)[0]: value for tag, value in zip(items[::2], items[1::2])}


def packet(values):
    items = b"".join(struct.pack(">II", 4, tag) + struct.pack(">I", len(value)) + value for tag, value in values)
    return struct.pack(">I", 4 + len(items)) + items


class Reporter(socketserver.StreamRequestHandler):
    def handle(self):
        values = receive(self.rfile)
        text = zlib.decompress(values[JSON])
        if len(text) != struct.unpack(">I", values[LENGTH])[0]:
            raise ValueError("the text has another length")
        inventory = json.loads(text)
        if values[HOST] != inventory["host"].encode() + b"\0":
            raise ValueError("the packet is of another host")
        (self.server.directory / "inventory.json").write_bytes(text)
        self.wfile.write(packet([(INTERFACES, struct.pack(">I", len(inventory["interfaces"])))]))


if len(sys.argv) != 2:
    sys.exit("usage: reporter.py DIRECTORY")
with socketserver.TCPServer(("127.0.0.1", 0), Reporter) as server:
    server.directory = pathlib.Path(sys.argv[1])
    print("%s:%d" % server.server_address, flush=True)
    server.serve_forever()
