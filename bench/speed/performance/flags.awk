# Adds local flags to mem files of kind F: awk -f ../flag_of.awk -f flags.awk blocks.csv FILE... writes
# FILE.flags
BEGIN {
  FS = ","
  OFS = "\t"
}
NR == FNR { blocks[$1]; next }
FNR == 1 {
  if (out) close(out)
  out = FILENAME ".flags"
  FS = "\t"
  $0 = $0
}
{
  print $0, flag_of($2 + 0) > out
}
