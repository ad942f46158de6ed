#!/usr/bin/python3
"""Restores a piece from the files of a repository, without any of our libraries.

    scripts/read-piece.py REPOSITORY NODE PASSWORD-FILE FILESPACE HIGH LOW > stream
    scripts/read-piece.py --piece IDENTIFIER REPOSITORY NODE PASSWORD-FILE > stream
    scripts/read-piece.py --list REPOSITORY NODE PASSWORD-FILE

REPOSITORY is the directory. PASSWORD-FILE is the file that the storage client keeps passwords in
(arca.opt.keys), or one whose first line is the node's password. A piece that an agent stored as NAME
has the names /lumoorc (or what VELO_FS says), / and /NAME; one that keel padded to whole blocks comes with
its padding. --list shows identifier, length and names, separated by tabs, and of an inactive piece when it
became so (UTC). Such a piece is read by its identifier.

It is written from docs/repository-format.md alone and shares nothing with the storage client, so it
proves that page, and reads a repository when everything else is gone. It needs python3-cryptography and
python3-zstandard; with python3-xxhash it compares the checksums and the digest of the stream as well, else
it says that it did not. Exit status: 0 when the whole piece was written and found right, 1 when not, 2
when called wrongly.
"""

import collections
import datetime
import hashlib
import hmac
import os
import pathlib
import re
import struct
import sys

import zstandard
from cryptography.exceptions import InvalidTag
from cryptography.hazmat.primitives.ciphers.aead import AESGCM

try:
    import xxhash
except ImportError:
    xxhash = None

MAX_RECORD = 64 * 1024
MAX_CHUNK = 4 << 20
MAX_FRAME = 1 << 20
CACHED_FRAMES = 64  # of 256 KiB each, as a rule
CACHED_PACKS = 64  # their indexes, open
DROPPED = 1 << 31
KEYED = 1 << 31  # of the version of a record


class Wrong(Exception):
    """What is wrong, in one sentence."""


def demand(true, what):
    if not true:
        raise Wrong(what)


class Fields:
    """Reads numbers and texts one after the other."""

    def __init__(self, data):
        self.data, self.at = data, 0

    def raw(self, length):
        demand(length <= len(self.data) - self.at, "a part ends too early")
        self.at += length
        return self.data[self.at - length:self.at]

    def number(self, width):
        return int.from_bytes(self.raw(width), "little")

    def text(self):
        return self.raw(self.number(2))

    def varint(self):
        value = 0
        for shift in range(0, 70, 7):
            byte = self.raw(1)[0]
            value |= (byte & 0x7F) << shift
            if byte < 0x80:
                return value
        raise Wrong("a number is too long")

    def left(self):
        return len(self.data) - self.at


def sha(*parts):
    digest = hashlib.sha256()
    for part in parts:
        digest.update(struct.pack("<Q", len(part)) + part)
    return digest.digest()


def mac(key, message):
    return hmac.new(key, message, hashlib.sha256).digest()


def derive(key, label):
    return mac(key, label + b"\x00\x01")


def text(value):
    return struct.pack("<H", len(value)) + value


def check64(expected, seed_part, part, what):
    """The checksum of `part`, seeded with that of `seed_part`."""
    if xxhash is not None:
        seed = xxhash.xxh3_64_intdigest(seed_part) if seed_part else 0
        demand(xxhash.xxh3_64_intdigest(part, seed=seed) == expected, what + ": the checksum differs")


def open_part(cipher, key, kind, number, associated, sealed):
    """A sealed part of a pack or a manifest."""
    nonce = struct.pack("<IQ", kind, number)
    demand(cipher in (0, 1, 2) and len(sealed) >= 16, "a sealed part makes no sense")
    try:
        if cipher == 0:
            AESGCM(key).decrypt(nonce, sealed[-16:], associated + sealed[:-16])
            return sealed[:-16]
        return AESGCM(key[:16] if cipher == 1 else key).decrypt(nonce, sealed, associated)
    except InvalidTag:
        raise Wrong("a sealed part is not what was written") from None


def expand(data, length):
    try:
        plain = zstandard.ZstdDecompressor().decompress(data, max_output_size=length)
    except zstandard.ZstdError as failure:
        raise Wrong(f"what was compressed does not expand ({failure})") from None
    demand(len(plain) == length, "what was compressed expands to another length")
    return plain


class Blob:
    """A file of the repository, read at any place."""

    def __init__(self, path):
        self.path = path
        self.file = open(path, "rb")
        self.size = os.fstat(self.file.fileno()).st_size

    def read(self, offset, length):
        demand(0 <= offset and 0 <= length and offset + length <= self.size, "it was cut")
        return os.pread(self.file.fileno(), length, offset)


Manifest = collections.namedtuple("Manifest", "id names blob cipher key chunks at end length digest inactive")


class Pack:
    """A pack and where its blocks are."""

    def __init__(self, path, identifier, packs_key):
        self.blob = blob = Blob(path)
        self.id = identifier
        header = blob.read(0, 64)
        magic, version, self.cipher, found, salt = struct.unpack("<8sII16s32s", header)
        demand(magic == b"ARCAPACK" and version == 1 and found == identifier, "its header makes no sense")
        self.key = mac(packs_key, found + salt)
        trailer = blob.read(blob.size - 64, 64)
        magic, offset, length, frames, blocks, zero, found, _, check = struct.unpack("<8sQIIII16sQQ", trailer)
        demand(magic == b"ARCAPEND" and zero == 0 and found == identifier, "its trailer makes no sense")
        demand(offset + length + 64 == blob.size, "its parts do not belong together")
        check64(check, header, trailer[:-8], "its trailer")
        index = open_part(self.cipher, self.key, 1, 0, header + trailer[:-8], blob.read(offset, length))
        demand(struct.unpack("<II", index[:8]) == (frames, blocks), "its index makes no sense")
        self.lay_out(Fields(index[8:]), frames, blocks)

    def lay_out(self, index, frames, blocks):
        self.frames = [struct.unpack("<QIIII", index.raw(24)) for _ in range(frames)]
        lengths = [struct.unpack("<16sI", index.raw(20))[1] for _ in range(blocks)]
        demand(index.left() == 0, "its index makes no sense")
        self.blocks = []  # frame, offset in it, length; None for one that was dropped
        for number, (_, _, raw, _, count) in enumerate(self.frames):
            demand(raw <= MAX_FRAME, "a frame is too large")
            offset = 0
            for length in lengths[len(self.blocks):len(self.blocks) + count]:
                gone = length & DROPPED
                self.blocks.append(None if gone else (number, offset, length))
                offset += 0 if gone else length
            demand(offset == raw, "a frame is not as long as its blocks")
        demand(len(self.blocks) == blocks, "its frames do not hold its blocks")

    def frame(self, number):
        offset, stored, raw, method, _ = self.frames[number]
        associated = self.id + struct.pack("<III", number, raw, method)
        content = open_part(self.cipher, self.key, 0, number, associated, self.blob.read(offset, stored))
        demand(method in (0, 1), "a frame is compressed in an unknown way")
        content = expand(content, raw) if method == 1 else content
        demand(len(content) == raw, "a frame has another length")
        return content


class Cache(collections.OrderedDict):
    """Keeps what was asked for last."""

    def __init__(self, limit):
        super().__init__()
        self.limit = limit

    def get_or_make(self, key, make):
        if key not in self:
            self[key] = make()
            if len(self) > self.limit:
                self.popitem(last=False)
        self.move_to_end(key)
        return self[key]


class Node:
    """What one node keeps in a repository."""

    def __init__(self, root, name, password_file):
        self.root, self.name = pathlib.Path(root), name.encode()
        self.key = sha(b"node", self.name)[:16].hex()
        demand((self.root / "format").is_file(), f"there is no repository in {root}")
        self.records, self.layout = None, 0
        marker = self.record(self.root / "format", b"ARCAREPO", 4)
        self.layout = struct.unpack("<I", (self.root / "format").read_bytes()[8:12])[0]
        uuid = marker.raw(16).hex()
        data = self.data_key(passwords_in(password_file, uuid, name))
        self.names = derive(data, b"names of pieces")
        self.manifests = derive(data, b"manifests")
        self.packs_key = derive(data, b"packs")
        self.records = derive(data, b"records")
        self.packs, self.frames = Cache(CACHED_PACKS), Cache(CACHED_FRAMES)

    def record(self, path, kind, newest):
        """The payload of a record."""
        data = path.read_bytes()
        where = str(path)
        demand(24 <= len(data) <= MAX_RECORD, where + " is no record")
        found, version, length = struct.unpack("<8sII", data[:16])
        demand(found == kind and 24 + length == len(data), where + " is another record")
        check64(struct.unpack("<Q", data[-8:])[0], None, data[:-8], where)
        payload, version = self.proven(path, found, version, data[16:-8])
        demand(1 <= version <= newest, where + " has a version that is not known here")
        return Fields(payload)

    def proven(self, path, kind, version, payload):
        """Payload and version of a record whose digest was compared, if it must have one."""
        place = str(path.relative_to(self.root)).encode()
        if version < KEYED:
            # The node's own record opens with the password; a filespace may be deleted without the key.
            free = place.startswith((b"nodes/", b"keys/", b"filespaces/")) or place == b"format"
            demand(self.layout < 4 or free, str(path) + " was written without the key")
            return payload, version
        version -= KEYED
        payload, digest = payload[:-32], payload[-32:]
        expected = mac(self.records, text(place) + kind + struct.pack("<I", version) + payload)
        demand(hmac.compare_digest(expected, digest), str(path) + " is not proven for its place")
        return payload, version

    def newest(self, place, kind, version):
        """The newest state of a numbered record; None when there is none."""
        directory = self.root / place
        states = sorted(p for p in directory.glob("*") if re.fullmatch("[0-9a-f]{8}", p.name))
        return self.record(states[-1], kind, version) if states else None

    def is_keyed(self, place):
        """Whether the newest state of a numbered record has a digest."""
        states = sorted(p for p in (self.root / place).glob("*") if re.fullmatch("[0-9a-f]{8}", p.name))
        return struct.unpack("<I", states[-1].read_bytes()[8:12])[0] >= KEYED

    def data_key(self, passwords):
        node = self.newest("nodes/" + self.key, b"ARCANODE", 4)
        scheme = node.number(2) if node is not None else 0  # 0: it was removed
        demand(scheme != 0, f"the node {self.name.decode()} is not registered")
        demand(scheme == 1, "the node's record is of an unknown scheme")
        n, r, p = node.number(8), node.number(4), node.number(4)
        salt, verifier, _, sealed = node.raw(16), node.raw(32), node.raw(32), node.raw(60)
        node.raw(60 + 92 + 92)
        demand(node.text() == self.name, "the node's record is another one")
        context = text(b"ARCANODE") + text(b"data key") + text(self.name)
        proven = node.left() == 40
        if proven:
            place = node.raw(8)
            layout, incarnation = struct.unpack("<II", place)
            context += place
        for password in passwords:
            made = hashlib.scrypt(password, salt=salt, n=n, r=r, p=p, maxmem=128 << 20, dklen=64)
            if hmac.compare_digest(made[:32], verifier):
                key = AESGCM(made[32:]).decrypt(sealed[:12], sealed[12:], context)
                demand(not proven or layout <= self.layout, "the marker says an earlier layout than the node knows")
                if proven and incarnation != 0:
                    self.key = sha(b"node", self.name, struct.pack("<I", incarnation))[:16].hex()
                return key
        raise Wrong("the password is wrong")

    def name_hash(self, names):
        return mac(self.names, b"".join(struct.pack("<Q", len(n)) + n for n in (self.name, *names)))[:16].hex()

    def manifest(self, path):
        blob = Blob(path)
        header = blob.read(0, 64)
        magic, version, cipher, piece, salt, described, _ = struct.unpack("<8sIIQ32sII", header)
        demand(magic == b"ARCAMANI" and version == 1, "its header makes no sense")
        key = mac(self.manifests, struct.pack("<Q", piece) + salt)
        size, inactive = blob.size, 0
        note = blob.read(size - 32, 32)
        if note[:8] == b"ARCAINAC":
            mark = mac(self.manifests, struct.pack("<Q", piece) + note[:16])[:16]
            demand(hmac.compare_digest(mark, note[16:]), "what says that it is inactive is wrong")
            size, inactive = size - 32, struct.unpack("<q", note[8:16])[0]
        tail = blob.read(size - 48, 48)
        magic, end, length, chunks, same, _, check = struct.unpack("<8sQIIQQQ", tail)
        demand(magic == b"ARCAMEND" and same == piece and end + length + 48 == size,
               "its tail makes no sense")
        check64(check, header, tail[:-8], "its tail")
        about = Fields(open_part(cipher, key, 2, 0, header, blob.read(64, described)))
        about.raw(8 + 4 + 2)
        node, *names = (about.text() for _ in range(4))
        place = self.name_hash(names)
        if inactive:
            place = f"{piece:016x}" if place[:8] == f"{piece >> 32:08x}" else None
        demand(node == self.name and place == path.name.partition(".")[0], "it is in another piece's place")
        totals = Fields(open_part(cipher, key, 4, 0, header + tail[:-8], blob.read(end, length)))
        return Manifest(piece, names, blob, cipher, key, chunks, 64 + described, end,
                        totals.number(8), totals.raw(16), inactive)

    def find_id(self, identifier):
        for manifest in self.list():
            if manifest.id == identifier:
                return manifest
        raise Wrong("there is no such piece")

    def find(self, names):
        digits = self.name_hash(names)
        paths = [self.root / "pieces" / self.key / digits[:2] / digits]
        paths += (self.root / "coming" / self.key / digits[:2]).glob(digits + ".*")
        for path in filter(pathlib.Path.is_file, paths):
            manifest = self.manifest(path)
            if self.shows(manifest):
                return manifest
        raise Wrong("there is no such piece")

    def list(self):
        for place in ("coming", "pieces", "inactive"):
            for path in sorted((self.root / place / self.key).glob("??/*")):
                manifest = self.manifest(path)
                if self.shows(manifest):
                    yield manifest

    def hidden(self, manifest):
        """Whether a change that is being made hides the piece in the place where it is."""
        for path in (self.root / "changes" / self.key).glob("*.plan"):
            plan = self.record(path, b"ARCAPLAN", 2)
            change, coming, going = plan.number(8), plan.number(4), plan.number(4)
            leaving = plan.number(4) if plan.left() != 8 * (coming + going) else 0
            plan.raw(8 * coming)
            goes = manifest.id in [plan.number(8) for _ in range(going)]
            leaves = manifest.id in [plan.number(8) for _ in range(leaving)]
            done = self.done(change)
            if goes and done or leaves and done and not manifest.inactive:
                return True
            if leaves and not done and manifest.inactive and "." not in manifest.blob.path.name:
                return True
        if not manifest.inactive and self.replaced(manifest):
            return True
        change = manifest.blob.path.name.partition(".")[2] if manifest.inactive else ""
        return change != "" and not self.holds(int(change, 16))

    def replaced(self, manifest):
        """Whether an active blob has lost its name, or is in coming/ by a change that is not done."""
        path = manifest.blob.path
        name, _, change = path.name.partition(".")
        if change:
            return not self.done(int(change, 16))
        for other in (self.root / "coming" / self.key / path.parent.name).glob(name + ".*"):
            if self.done(int(other.suffix[1:], 16)) and self.manifest(other).id != manifest.id:
                return True
        return False

    def outcome(self, change):
        """What was decided of a change: 1 done, 2 undone, None: nothing, or it is settled."""
        path = self.root / "outcomes" / self.key / f"{change:016x}"
        return self.record(path, b"ARCAOUTC", 1).number(2) if path.is_file() else None

    def holds(self, change):
        """Whether the copy is the piece that a change made of one that became inactive."""
        decided = self.outcome(change)
        if decided is None and not (self.root / "changes" / self.key / f"{change:016x}.plan").is_file():
            return True
        return decided == 1

    def shows(self, manifest):
        """Whether the piece is there as far as anybody who asks is told."""
        filespace = sha(b"filespace", self.name, manifest.names[0])[:16].hex()
        space = self.newest(f"filespaces/{self.key}/{filespace}", b"ARCAFSPC", 2)
        if space is None:
            return False
        space.raw(3 * 8)
        for _ in range(4):
            space.text()
        if space.left() and space.raw(6)[4:] != b"\0\0":
            return False  # deleted
        demand(self.layout < 4 or self.is_keyed(f"filespaces/{self.key}/{filespace}"),
               "the record of its filespace was written without the key")
        if self.hidden(manifest):
            return False
        record = self.newest(f"objects/{self.key}/{manifest.id:016x}", b"ARCAOBJE", 1)
        if record is None:
            return True
        _, _, renamed_to, shown_by, gone_by = (record.number(8) for _ in range(5))
        if self.done(gone_by) if gone_by else renamed_to:
            return False
        return shown_by == 0 or self.done(shown_by)

    def done(self, change):
        decided = self.outcome(change)
        if decided is None and self.layout < 4:
            return (self.root / "changes" / self.key / f"{change:016x}.done").exists()
        return decided == 1

    def runs(self, manifest):
        """Pack (None: zeros), first block, number of blocks or of bytes."""
        at = manifest.at
        for number in range(manifest.chunks):
            length = struct.unpack("<I", manifest.blob.read(at, 4))[0]
            demand(length <= MAX_CHUNK and at + 4 + length <= manifest.end, "a chunk of runs was cut")
            part = Fields(open_part(manifest.cipher, manifest.key, 3, number, b"",
                                    manifest.blob.read(at + 4, length)))
            at += 4 + length
            method, plain = part.number(1), part.number(4)
            demand(method in (0, 1) and plain <= MAX_CHUNK, "a chunk of runs makes no sense")
            rest = part.raw(part.left())
            runs = Fields(expand(rest, plain) if method else rest)
            packs = [runs.raw(16) for _ in range(runs.varint())]
            while runs.left():
                which = runs.varint()
                demand(which <= len(packs), "a run makes no sense")
                yield (packs[which - 1], runs.varint(), runs.varint()) if which else (None, 0, runs.varint())
        demand(at == manifest.end, "the runs do not end where they should")

    def pack(self, identifier):
        def opened():
            place = self.root / "packs" / self.key / f"{identifier[0] ^ identifier[12]:02x}"
            found = [p for p in place.glob(identifier.hex() + ".*") if p.suffix[1:].isdigit()]
            demand(found, f"the pack {identifier.hex()} is missing")
            path = max(found, key=lambda p: int(p.suffix[1:]))
            try:
                return Pack(path, identifier, self.packs_key)
            except Wrong as failure:
                raise Wrong(f"pack {path}: {failure}") from None
        return self.packs.get_or_make(identifier, opened)

    def stream(self, manifest):
        """The bytes of the piece, in portions."""
        zeros = bytes(1 << 20)
        for identifier, first, count in self.runs(manifest):
            if identifier is None:
                for begin in range(0, count, len(zeros)):
                    yield zeros[:count - begin]
                continue
            pack = self.pack(identifier)
            demand(first + count <= len(pack.blocks), "a run leads beyond its pack")
            for block in pack.blocks[first:first + count]:
                demand(block is not None, "a block that is needed was dropped")
                number, offset, length = block
                frame = self.frames.get_or_make((identifier, number), lambda: pack.frame(number))
                yield frame[offset:offset + length]

    def restore(self, manifest, write):
        digest = xxhash.xxh3_128() if xxhash is not None else None
        length = 0
        for part in self.stream(manifest):
            length += len(part)
            if digest is not None:
                digest.update(part)
            write(part)
        demand(length == manifest.length, "the stream has another length")
        if digest is None:
            print("read-piece: python3-xxhash is missing, so the digest was not compared", file=sys.stderr)
        else:
            demand(digest.digest() == manifest.digest, "the digest of the stream differs")


def passwords_in(path, uuid, node):
    """Those that a file of the storage client has for the node, or its first line."""
    lines = pathlib.Path(path).read_text().splitlines()
    kept = [re.fullmatch("([0-9a-f]{32}) ([0-9a-f]{64}) (.*)", line) for line in lines]
    if any(kept):
        return [k[2].encode() for k in kept if k and (k[1], k[3]) == (uuid, node)]
    return [line.encode() for line in lines[:1]]


def main(arguments):
    listing, by_id = arguments[:1] == ["--list"], arguments[:1] == ["--piece"]
    if len(arguments) != (4 if listing else 5 if by_id else 6) or arguments[0] == "--help":
        print(__doc__.strip(), file=sys.stdout if arguments[:1] == ["--help"] else sys.stderr)
        return 0 if arguments[:1] == ["--help"] else 2
    try:
        if listing:
            for piece in Node(*arguments[1:]).list():
                names = b"\t".join(piece.names).decode(errors="replace")
                since = f"\t{datetime.datetime.utcfromtimestamp(piece.inactive)}" if piece.inactive else ""
                print(f"{piece.id:016x}\t{piece.length}\t{names}{since}")
            return 0
        node = Node(*arguments[2:]) if by_id else Node(*arguments[:3])
        piece = node.find_id(int(arguments[1], 16)) if by_id else node.find(
            [os.fsencode(a) for a in arguments[3:]])
        node.restore(piece, sys.stdout.buffer.write)
        sys.stdout.buffer.flush()
        return 0
    except (Wrong, InvalidTag, OSError, ValueError, struct.error) as failure:
        print(f"read-piece: {failure or 'a sealed key does not open'}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
