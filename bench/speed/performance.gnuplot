# Draws what bench/speed/performance.sh measured. Variables: folder, out, large, small.
set terminal pngcairo size 1100,380 font "Sans,10"
set output out
set multiplot layout 1,3
set style fill solid 0.8
set boxwidth 0.6
set grid y
set key off
set yrange [0:*]
set ylabel "seconds"
set title sprintf("%s files of %s rows", word(large, 1), word(large, 2))
plot folder . "/large.bars" using 0:2:xtic(1) with boxes lc rgb "#4477aa", \
  "" using 0:2:(sprintf("%.1f", $2)) with labels offset 0,0.6
set logscale y
set yrange [0.1:*]
set title sprintf("%s files of %s rows", word(small, 1), word(small, 2))
plot folder . "/small.bars" using 0:2:xtic(1) with boxes lc rgb "#4477aa", \
  "" using 0:2:(sprintf("%.1f", $2)) with labels offset 0,0.6
unset logscale y
set yrange [0:*]
set logscale x
set xrange [500:200000]
set key top left
set title "files waiting in one folder"
set ylabel "ms per loaded file"
plot folder . "/curve" using 1:($2/$4*1000) with linespoints lw 2 pt 7 lc rgb "#4477aa" title "service", \
  "" using 1:3 with linespoints lw 2 pt 7 lc rgb "#cc6677" title "its processor time"
unset multiplot
