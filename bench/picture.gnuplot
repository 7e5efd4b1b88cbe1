# The picture docs/performance.svg: seconds against bytes and against files. Medians of the rounds,
# with the least and the most.

points(kind, unit, small, large, column) = \
  sprintf("< for size in 1 4; do awk -F '\\t' -v n=%s-%s-$size '$1 == n && $%d != \"\" { print $%d }' %s | sort -g | awk -v size=$size '{ v[NR] = $1 } END { print size == 1 ? %g : %g, (v[int((NR + 1) / 2)] + v[int((NR + 2) / 2)]) / 2, v[1], v[NR] }'; done", kind, unit, column, column, measurements, small, large)

set terminal svg size 900,420 dynamic background rgb "white" font "sans-serif,12"
set output picture
set multiplot layout 1,2
set key top left
set grid
set yrange [0:*]
set ylabel "seconds"
set style line 1 lc rgb "#1b6ca8" lw 2 pt 7 ps 0.7
set style line 2 lc rgb "#888888" lw 2 pt 6 ps 0.7 dt 2
set style line 3 lc rgb "#c05c1a" lw 2 pt 7 ps 0.7
set style line 4 lc rgb "#888888" lw 2 pt 4 ps 0.7 dt 3

set xrange [0:1300.0/share]
set xlabel sprintf("MB, in %d files", 2000 / share)
plot \
  points("backup", "bytes", 300.0/share, 1200.0/share, 2) using 1:2:3:4 with yerrorlines ls 1 title "backup", \
  points("backup", "bytes", 300.0/share, 1200.0/share, 3) using 1:2:3:4 with yerrorlines ls 2 title "floor of the backup", \
  points("verification", "bytes", 300.0/share, 1200.0/share, 2) using 1:2:3:4 with yerrorlines ls 3 title "verification", \
  points("verification", "bytes", 300.0/share, 1200.0/share, 3) using 1:2:3:4 with yerrorlines ls 4 title "floor of the verification"

set xrange [0:22000.0/share]
set xtics 5000.0/share
set xlabel "files of 1 KiB"
plot \
  points("backup", "files", 5000.0/share, 20000.0/share, 2) using 1:2:3:4 with yerrorlines ls 1 title "backup", \
  points("backup", "files", 5000.0/share, 20000.0/share, 3) using 1:2:3:4 with yerrorlines ls 2 title "floor of the backup", \
  points("verification", "files", 5000.0/share, 20000.0/share, 2) using 1:2:3:4 with yerrorlines ls 3 title "verification", \
  points("verification", "files", 5000.0/share, 20000.0/share, 3) using 1:2:3:4 with yerrorlines ls 4 title "floor of the verification"
unset multiplot
