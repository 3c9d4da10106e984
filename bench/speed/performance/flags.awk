# Adds local flags to mem files of kind F: awk -f flags.awk blocks.csv FILE... writes FILE.flags
BEGIN {
  FS = ","
  OFS = "\t"
  prefix[0] = 13; prefix[1] = 14; prefix[2] = 15; prefix[3] = 18
}
NR == FNR { blocks[$1]; next }
FNR == 1 {
  if (out) close(out)
  out = FILENAME ".flags"
  FS = "\t"
  $0 = $0
}
{
  code = $2 + 0
  if (code == 0) {
    flag = 2
  } else {
    top = int(code / 1073741824)
    number = sprintf("%d%09d", prefix[top], code - top * 1073741824)
    flag = (substr(number, 1, 7) in blocks) ? 1 : 0
  }
  print $0, flag > out
}
