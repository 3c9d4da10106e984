# The local flag of a user code, by the blocks that the caller has read.
BEGIN { prefix[0] = 13; prefix[1] = 14; prefix[2] = 15; prefix[3] = 18 }

function flag_of(code,    top, number) {
  if (code == 0) return 2
  top = int(code / 1073741824)
  number = sprintf("%d%09d", prefix[top], code - top * 1073741824)
  return (substr(number, 1, 7) in blocks) ? 1 : 0
}
