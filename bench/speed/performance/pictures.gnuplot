# Draws what report.py wrote to works.txt and backlog.txt in `folder`, a string.
set grid y lc rgb "#dddddd"
set border 3
set tics nomirror
set yrange [0:*]

set terminal pngcairo size 1000,400 font "Sans,10"
set output folder . "/performance-works.png"
set multiplot layout 1,3
set key off
set style fill solid 0.85 noborder
set boxwidth 0.7
set xtics rotate by 45 right scale 0
set offsets 0.3, 0.3, graph 0.12, 0
works = folder . "/works.txt"
set ylabel "ms a file"
do for [work = 0:2] {
  set title system(sprintf("grep '\" 0 0$' %s | sed -n '%dp' | cut -d'\"' -f2", works, work + 1))
  plot works index work every ::1 using 0:2:($3 == 1 ? 0xbbbbbb : 0x4477aa):xtic(1) \
      with boxes lc rgb variable, \
    "" index work every ::1 using 0:2:(sprintf($2 < 10 ? "%.2f" : "%.0f", $2)) with labels offset 0,0.6
  unset ylabel
}
unset multiplot

set terminal pngcairo size 700,340 font "Sans,10"
set output folder . "/performance-backlog.png"
unset title
unset offsets
set xtics norotate center ("1,000" 1000, "10,000" 10000, "100,000" 100000)
set logscale x
set xrange [700:150000]
set xlabel "files waiting in one folder"
set ylabel "ms a file"
set key center right
plot folder . "/backlog.txt" using 1:2 with linespoints lw 2 pt 7 lc rgb "#4477aa" title "as described", \
  "" using 1:3 with linespoints lw 2 pt 7 lc rgb "#cc6677" title "delivery=once"
