/* A file system in user space with one file, "disk": a test stops this process, and who reads waits.
 *
 * The variable SICK names parts of it that cannot be read, as "bad FROM TO" or, when that is so for the first
 * reading alone, "once FROM TO"; SIZE its size in bytes, 1 MiB when it is not given. */
#define FUSE_USE_VERSION 31
#include <errno.h>
#include <fuse3/fuse.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static long long disk_size = 1 << 20;

static struct part {
  char kind[8];
  long long from, to;
} parts[16];

static int get_status(const char *path, struct stat *status, struct fuse_file_info *info) {
  (void)info;
  memset(status, 0, sizeof *status);
  if (strcmp(path, "/") == 0) {
    status->st_mode = S_IFDIR | 0755;
  } else if (strcmp(path, "/disk") == 0) {
    status->st_mode = S_IFREG | 0644;
    status->st_size = disk_size;
  } else {
    return -ENOENT;
  }
  return 0;
}

static int open_disk(const char *path, struct fuse_file_info *info) {
  (void)path;
  info->direct_io = 1; /* each reading is asked for here */
  return 0;
}

static int read_disk(const char *path, char *to, size_t size, off_t offset,
                     struct fuse_file_info *info) {
  (void)path, (void)info;
  if (offset >= disk_size) return 0;
  if (size > (size_t)(disk_size - offset)) size = (size_t)(disk_size - offset);
  for (struct part *part = parts; part->to != 0; ++part) {
    if (part->to <= offset || part->from >= offset + (off_t)size) continue;
    if (strcmp(part->kind, "once") == 0) part->from = part->to = -1;
    return -EIO;
  }
  memset(to, 0, size);
  return (int)size;
}

int main(int argc, char **argv) {
  static const struct fuse_operations operations = {
      .getattr = get_status, .open = open_disk, .read = read_disk};
  if (getenv("SIZE")) disk_size = atoll(getenv("SIZE"));
  const char *at = getenv("SICK");
  int length = 0;
  for (struct part *part = parts; at; at += length, ++part) {
    if (sscanf(at, "%7s %lld %lld%n", part->kind, &part->from, &part->to, &length) != 3) break;
  }
  return fuse_main(argc, argv, &operations, NULL);
}
