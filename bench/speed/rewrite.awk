# The rewriting of a mem file as an awk script:
# awk -f flag_of.awk -f rewrite.awk blocks.csv mem.dat > copy
BEGIN {
  FS = ","
  OFS = "\t"
}
NR == FNR { blocks[$1]; next }
FNR == 1 { FS = "\t"; $0 = $0 }
{
  if (/^\t|\t\t|\t$/) {
    gsub(/\t+/, "\t")
    gsub(/^\t|\t$/, "")
  }
  if (NF != 11) next
  print $0, flag_of($2 + 0)
  fflush()
}
