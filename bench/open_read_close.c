/* What there is to do at least to see the headers of many files: open, pread past the page cache, close of each.
 * scripts/admin-bench compares discover with it.
 *
 *   open_read_close FILE... */
#include <fcntl.h>
#include <stdalign.h>
#include <stdio.h>
#include <unistd.h>

enum { BLOCK = 16384 }; /* the longest block 0 */

int main(int argc, char **argv) {
  alignas(4096) static char block[BLOCK];
  for (int i = 1; i < argc; ++i) {
    const int file = open(argv[i], O_RDONLY | O_DIRECT);
    if (file < 0 || pread(file, block, sizeof block, 0) < 0 || close(file) != 0) {
      perror(argv[i]);
      return 1;
    }
  }
  return 0;
}
