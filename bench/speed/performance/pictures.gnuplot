# Draws what report.py wrote to works.txt and backlog.txt in `folder`, a string.
set terminal pngcairo size 1000,420 font "Sans,10"
set grid y lc rgb "#dddddd"
set border 3
set tics nomirror

set output folder . "/performance-works.png"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.85 noborder
set boxwidth 0.9
set logscale y
set ylabel "ms a file, on the disk"
set key top left
set xtics scale 0
set yrange [0.1:*]
plot for [column = 2:4] folder . "/works.txt" using column:xtic(1) title columnheader(column) \
  lc rgb word("#4477aa #cc6677 #999933", column - 1)

set output folder . "/performance-backlog.png"
set terminal pngcairo size 700,360 font "Sans,10"
unset logscale
set logscale x
set xrange [700:150000]
set yrange [0:*]
set xlabel "files waiting in one folder"
set ylabel "ms a file"
set xtics ("1,000" 1000, "10,000" 10000, "100,000" 100000)
set key center right
plot folder . "/backlog.txt" using 1:2 with linespoints lw 2 pt 7 lc rgb "#4477aa" title "as described", \
  "" using 1:3 with linespoints lw 2 pt 7 lc rgb "#cc6677" title "delivery=once"
