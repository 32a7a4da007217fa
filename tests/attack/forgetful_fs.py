"""A file system in memory that knows what was synchronised: what would be left of it after a power cut.

    forgetful_fs.py MOUNT SNAPSHOTS

Making the folder MOUNT/.cut-N-HOW writes that into SNAPSHOTS/N. HOW: "synced", only what fsync() has promised;
"some", of the rest some writes of 512 bytes, others not, as a disk does that reorders; "all", everything.
A name lasts once its file or its folder was synchronised.
"""

import errno
import os
import pathlib
import random
import stat
import sys
import time

import fusepy as fuse

SECTOR = 512


class File:
    def __init__(self, mode, owner):
        self.mode, self.owner = mode, owner
        self.data = bytearray()
        self.synced = b""
        self.pending = []  # (offset, bytes) or (size, None), in order


class ForgetfulFs(fuse.Operations):
    def __init__(self, snapshots):
        self.snapshots = pathlib.Path(snapshots)
        self.files, self.lasting = {}, {}  # by path
        self.folders = {"/": (0o700, (os.geteuid(), os.getegid()))}
        self.random = random.Random(20261122)

    # --- the cut ---

    def cut(self, number, how):
        target = self.snapshots / number
        target.mkdir()
        for folder in sorted(self.folders):
            (target / folder[1:]).mkdir(exist_ok=True, mode=0o700)
        for path, file in (self.files if how == "all" else self.lasting).items():
            place = target / path[1:]
            place.write_bytes(bytes(file.data) if how == "all" else self.left_of(file, how))
            place.chmod(0o600)

    def left_of(self, file, how):
        content = bytearray(file.synced)
        if how == "some":
            for offset, written in file.pending:
                if written is None:
                    if self.random.random() < 0.5:
                        resize(content, offset)
                    continue
                for at in range(0, len(written), SECTOR):
                    if self.random.random() < 0.5:
                        store(content, offset + at, written[at:at + SECTOR])
        return bytes(content)

    # --- files ---

    def found(self, path):
        if path not in self.files:
            raise fuse.FuseOSError(errno.ENOENT)
        return self.files[path]

    def getattr(self, path, fh=None):
        if path in self.folders:
            mode, owner = self.folders[path]
            return {"st_mode": stat.S_IFDIR | mode, "st_nlink": 2, "st_uid": owner[0], "st_gid": owner[1]}
        file = self.found(path)
        return {"st_mode": stat.S_IFREG | file.mode, "st_nlink": 1, "st_uid": file.owner[0], "st_gid": file.owner[1],
                "st_size": len(file.data), "st_mtime": time.time()}

    def readdir(self, path, fh):
        inside = [name for name in (*self.files, *self.folders) if name != "/" and os.path.dirname(name) == path]
        return [".", "..", *map(os.path.basename, inside)]

    def create(self, path, mode, fi=None):
        self.files[path] = File(mode & 0o7777, fuse.fuse_get_context()[:2])
        return 0

    def open(self, path, flags):
        self.found(path)
        return 0

    def read(self, path, size, offset, fh):
        return bytes(self.found(path).data[offset:offset + size])

    def write(self, path, data, offset, fh):
        file = self.found(path)
        store(file.data, offset, data)
        file.pending.append((offset, bytes(data)))
        return len(data)

    def truncate(self, path, length, fh=None):
        file = self.found(path)
        resize(file.data, length)
        file.pending.append((length, None))

    def fsync(self, path, datasync, fh):
        if path in self.files:
            file = self.lasting[path] = self.files[path]
            file.synced, file.pending = bytes(file.data), []
        return 0

    def fsyncdir(self, path, datasync, fh):
        for names in (self.lasting, self.files):
            for name in [name for name in names if os.path.dirname(name) == path]:
                if name in self.files:
                    self.lasting[name] = self.files[name]
                else:
                    del names[name]
        return 0

    def unlink(self, path):
        self.found(path)
        del self.files[path]

    def rename(self, old, new):
        self.files[new] = self.found(old)
        del self.files[old]

    def chmod(self, path, mode):
        if path in self.folders:
            self.folders[path] = (mode & 0o7777, self.folders[path][1])
        else:
            self.found(path).mode = mode & 0o7777
        return 0

    def chown(self, path, uid, gid):
        return 0

    def utimens(self, path, times=None):
        return 0

    def mkdir(self, path, mode):
        if path.startswith("/.cut-"):
            self.cut(*path[len("/.cut-"):].split("-"))
        else:
            self.folders[path] = (mode & 0o7777, fuse.fuse_get_context()[:2])

    def rmdir(self, path):
        self.folders.pop(path, None)

    def statfs(self, path):
        return {"f_bsize": 4096, "f_blocks": 1 << 20, "f_bfree": 1 << 20, "f_bavail": 1 << 20}


def store(content, offset, data):
    if offset > len(content):
        content.extend(bytes(offset - len(content)))
    content[offset:offset + len(data)] = data


def resize(content, length):
    if length < len(content):
        del content[length:]
    else:
        content.extend(bytes(length - len(content)))


if __name__ == "__main__":
    fuse.FUSE(ForgetfulFs(sys.argv[2]), sys.argv[1], foreground=True, nothreads=True)
