# The statements that load and convert the mem files whose paths are read, files of one mem table
# behind each other: gawk -v templates=FOLDER -v how=each|batches -f statements.awk

function template(name,    text, line) {
  if (name in known) return known[name]
  while ((getline line < (templates "/" name)) > 0) text = text line "\n"
  close(templates "/" name)
  return known[name] = text
}

function make_once(table, create) {
  if (!(table in made)) printf "%s;\n", sprintf(create, table)
  made[table]
}

function convert(    i) {
  if (table == "") return
  make_once("T_" long[kind] "1D_" date, template("Create." kind ".day"))
  make_once("T_" long[kind] "1M_" substr(date, 1, 6), template("Create." kind ".month"))
  print "start transaction;"
  for (i = 1; i <= 3; ++i) printf "%s;\n", sprintf(template("Convert." kind "." period[i]), date, table)
  printf "commit; truncate table %s;\n", table
}

BEGIN {
  split("day month year", period)
  long["F"] = "FLOW"
  long["A"] = "AUTH"
}
{
  name = $0
  sub(/.*\//, "", name)
  next_table = substr(name, 10, 13) "000" substr(name, 26, 2)
  if (how == "each" || next_table != table) convert()
  table = next_table
  date = substr(name, 14, 8)
  kind = substr(name, 27, 1)
  make_once(table, template("mem." kind))
  printf "load data infile '%s%s' ignore into table %s;\n", $0, kind == "F" ? ".flags" : "", table
}
END { convert() }
