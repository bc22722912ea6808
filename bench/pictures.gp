# Draws cost against load from the medians that scripts/bench collects.
# Given on the command line: medians, a table of names and numbers; folder, for the pictures.

# The rows whose name is `before`, a number and `after`, by that number.
rows(before, after) = sprintf("< sed -nE 's#^%s([0-9]+)%s\t#\\1\t#p' '%s' | sort -n", before, after, medians)
picture(name) = folder . "/" . name . ".svg"

# Told apart with any colour vision, and by their marks in print.
blue = "#0072b2"; orange = "#d55e00"; green = "#009e73"; purple = "#cc79a7"; grey = "#777777"
set linetype 1 lc rgb blue pt 7 lw 1.6
set linetype 2 lc rgb orange pt 5 lw 1.6
set linetype 3 lc rgb green pt 9 lw 1.6
set linetype 4 lc rgb purple pt 13 lw 1.6
set linetype 5 lc rgb grey pt 6 lw 1.6
set linetype 6 lc rgb grey pt 8 lw 1.6

set terminal svg size 760,430 dynamic noenhanced font 'sans-serif,12' background '#ffffff'
set encoding utf8
set border 3 lc rgb '#666666'
set tics nomirror scale 0.5
set grid ytics lc rgb '#dddddd'
set key outside right center Left reverse samplen 2.5
set style data linespoints
set pointsize 0.6
set logscale xy
set xtics (1, 10, 100, 250, 500, 1000)

set output picture("cycle")
set title "One cycle, for each actuator" offset 0,-0.5
set xlabel "actuators"; set ylabel "ns"
plot rows("cycle/", "/consuming/torvex") using 1:2 lt 2 title "one command reached", \
     rows("cycle/", "/on_the_way/torvex") using 1:2 lt 1 title "on the way", \
     rows("cycle/", "/waiting_step/torvex") using 1:2 lt 3 title "waiting (step)", \
     rows("cycle/", "/idle/torvex") using 1:2 lt 4 title "idle", \
     rows("cycle/", "/floor_with_lock") using 1:2 lt 5 dt 2 title "floor with lock", \
     rows("cycle/", "/floor") using 1:2 lt 6 dt 2 title "floor", \
     rows("cycle/", "/on_the_way/vector") using 1:2 lt 1 dt 2 title "vector, on the way", \
     rows("cycle/", "/idle/vector") using 1:2 lt 4 dt 2 title "vector, idle"

set output picture("push")
set title "A list built and pushed with MERGE, for each item"
set xlabel "items of the list"
plot rows("push/merge/", "_into_250/ascending/torvex") using 1:2 lt 4 title "ascending, 250 queued", \
     rows("push/merge/", "_into_0/ascending/torvex") using 1:2 lt 1 title "ascending, none queued", \
     rows("push/merge/", "_into_0/shuffled/torvex") using 1:2 lt 2 title "shuffled, none queued", \
     rows("push/merge/", "_into_250/ascending/vector") using 1:2 lt 4 dt 2 title "vector, 250 queued", \
     rows("push/merge/", "_into_0/ascending/vector") using 1:2 lt 1 dt 2 title "vector, ascending", \
     rows("push/merge/", "_into_0/shuffled/vector") using 1:2 lt 2 dt 2 title "vector, shuffled"

set output picture("clearing")
set title "A whole list built and pushed into 250 queued items"
plot rows("push/replace/", "_into_250/ascending/torvex") using 1:($1*$2) lt 1 title "REPLACE", \
     rows("push/clear_after/", "_into_250/ascending/torvex") using 1:($1*$2) lt 2 title "CLEAR_AFTER", \
     rows("push/clear_before/", "_into_250/ascending/torvex") using 1:($1*$2) lt 3 title "CLEAR_BEFORE", \
     rows("push/merge/", "_into_250/ascending/torvex") using 1:($1*$2) lt 4 title "MERGE", \
     rows("push/replace/", "_into_250/ascending/vector") using 1:($1*$2) lt 5 dt 2 title "vector, REPLACE", \
     rows("push/replace/", "_into_250/ascending/front_first") using 1:($1*$2) lt 6 dt 2 title "REPLACE from the front"

set output picture("pool")
set title "One node given back to the pool"
set xlabel "nodes in the process"
set xtics (480, 3000, 15000, 51000)
plot rows("removal/interleaved_drain/", "/not_warmed") using 1:2 lt 2 dt 2 title "interleaved, not warmed", \
     rows("removal/interleaved_drain/", "/warmed") using 1:2 lt 2 title "interleaved, warmed", \
     rows("removal/bulk_drain/", "/not_warmed") using 1:2 lt 1 dt 2 title "bulk, not warmed", \
     rows("removal/bulk_drain/", "/warmed") using 1:2 lt 1 title "bulk, warmed", \
     rows("removal/stream/", "/not_warmed") using 1:2 lt 3 dt 2 title "steady stream, not warmed", \
     rows("removal/stream/", "/warmed") using 1:2 lt 3 title "steady stream, warmed"

set output picture("names")
set title "Names: a look-up, and a table for each attribute that it gains"
set xlabel "attributes"
set xtics (100, 10000, 65535)
plot rows("build/", "/timelines/extended") using 1:2 lt 2 dt 2 title "timelines extended by a tenth", \
     rows("build/", "/names/extended") using 1:2 lt 1 dt 2 title "names extended by a tenth", \
     rows("build/", "/names/full") using 1:2 lt 1 title "names built", \
     rows("build/", "/timelines/full") using 1:2 lt 2 title "timelines built", \
     rows("look_up/", "/bare_name") using 1:2 lt 3 title "bare name looked up", \
     rows("look_up/", "/unknown") using 1:2 lt 4 title "unknown name looked up", \
     rows("look_up/", "/full_key") using 1:2 lt 5 title "full key looked up"

set output picture("busy")
set title "A cycle of 30 actuators at 1 kHz beside REPLACEs of 500 items"
set xlabel "lists in a second"
unset logscale x
set xtics (0, 100, 650)
plot rows("beside_lists/", "") using 1:6 lt 2 title "longest", \
     rows("beside_lists/", "") using 1:5 lt 4 title "p99.9", \
     rows("beside_lists/", "") using 1:4 lt 3 title "p99", \
     rows("beside_lists/", "") using 1:3 lt 1 title "p50"

set output picture("together")
set title "A cycle in which all axes reach a point, and one in which none does"
set xlabel "axes"; set ylabel "ns for each axis"
set logscale x
set xtics (10, 100, 1000, 10000)
plot rows("engine/together/", "/replaced") using 1:($3/$1) lt 2 dt 2 title "p50, batches replaced", \
     rows("engine/together/", "/running_dry") using 1:($3/$1) lt 3 dt 2 title "p50, running dry", \
     rows("engine/together/", "/steady") using 1:($4/$1) lt 4 title "p99", \
     rows("engine/together/", "/steady") using 1:($3/$1) lt 1 title "p50", \
     rows("engine/together/", "/steady") using 1:($7/$1) lt 5 dt 2 title "p50, none reached"
