# Adds up what a callgrind output counted in lines of skgfr/ and sysl/ themselves: what the layer costs
# without the calls that it makes, the program that calls it and library headers.
#
# Names of files and functions are given once, with a number in parentheses, and by that number later.
function file_of(line,   number) {
  sub(/^c?f[lie]=/, "", line)
  match(line, /^\([0-9]+\)/)
  number = substr(line, RSTART, RLENGTH)
  if (length(line) > RLENGTH) name[number] = substr(line, RLENGTH + 2)
  return name[number]
}
/^f[lie]=/ { file = file_of($0); next }
/^cf[il]=/ { file_of($0); next }
/^calls=/ { callee = 1; next }
/^[0-9+*-]/ {
  if (!callee && file ~ /\/(skgfr|sysl)\/[^\/]/) sum += $2
  callee = 0
}
END { print sum + 0 }
