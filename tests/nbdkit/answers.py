# Requests that do not fit and a file that shrinks, run by nbdsh on a served file of two blocks of 4096.
import errno
import os


def fails(expected, request):
    try:
        request()
    except nbd.Error as error:
        assert error.errnum == expected, error
        return
    raise AssertionError("no error")


h.set_strict_mode(0)
assert h.get_size() == 8192 and h.get_block_size(nbd.SIZE_MINIMUM) == 4096
old, new = h.pread(8192, 0), os.urandom(4096)
fails(errno.EINVAL, lambda: h.pread(512, 0))
fails(errno.EINVAL, lambda: h.pwrite(new, 512))
fails(errno.EINVAL, lambda: h.pread(4096, 8192))
fails(errno.ENOSPC, lambda: h.pwrite(new, 8192))
assert h.pread(8192, 0) == old
h.pwrite(new, 4096, nbd.CMD_FLAG_FUA)
assert h.pread(8192, 0) == old[:4096] + new
with open(os.environ["FILE"], "rb") as file:
    assert file.read()[8192:] == new

os.truncate(os.environ["FILE"], 8192)
fails(errno.EIO, lambda: h.pread(4096, 4096))
assert h.pread(4096, 0) == old[:4096]
