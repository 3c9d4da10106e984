# The rewriting of a mem file as an awk script: awk -f rewrite.awk blocks.csv mem.dat > copy
BEGIN {
  FS = ","
  OFS = "\t"
  prefix[0] = 13; prefix[1] = 14; prefix[2] = 15; prefix[3] = 18
}
NR == FNR { blocks[$1]; next }
FNR == 1 { FS = "\t"; $0 = $0 }
{
  if (/^\t|\t\t|\t$/) {
    gsub(/\t+/, "\t")
    gsub(/^\t|\t$/, "")
  }
  if (NF != 11) next
  code = $2 + 0
  if (code == 0) {
    flag = 2
  } else {
    top = int(code / 1073741824)
    number = sprintf("%d%09d", prefix[top], code - top * 1073741824)
    flag = (substr(number, 1, 7) in blocks) ? 1 : 0
  }
  print $0, flag
  fflush()
}
