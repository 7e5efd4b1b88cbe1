# Turns scripts/bench's measurements into the page docs/performance.md, and the plain table into the
# file `table`. Ends with 1 when a bar is missed that is within reach.
#
# A line of measurements is one round: a name and the round's numbers, with tabs between them. For a
# comparison these are the updater's seconds and the floor's.

BEGIN { FS = "\t" }

{
  round = ++count[$1]
  for (column = 2; column <= NF; ++column) number[$1, column - 1, round] = $column
}

END {
  add_rows()
  print_page()
  exit (missed > 0)
}

# Fills `sorted` and sets median, least and most.
function summarise(values, n,    i, j, value) {
  for (i = 1; i <= n; ++i) {
    value = values[i]
    for (j = i - 1; j >= 1 && sorted[j] > value; --j) sorted[j + 1] = sorted[j]
    sorted[j + 1] = value
  }
  least = sorted[1]
  most = sorted[n]
  median = n % 2 ? sorted[(n + 1) / 2] : (sorted[n / 2] + sorted[n / 2 + 1]) / 2
}

# A round without the number does not count.
function median_of(name, column,    values, n, i) {
  for (i = 1; i <= count[name]; ++i)
    if (number[name, column, i] != "") values[++n] = number[name, column, i]
  summarise(values, n)
  return median
}

# Adds a row for the values of its rounds. `limit` is "<= NUMBER" or ">= NUMBER".
function add_row(what, values, n, format, limit, detail,    bar, held) {
  if (n == 0) {
    held = 0
    measured[++rows] = "not measured"
  } else {
    summarise(values, n)
    bar = substr(limit, 4) + 0
    held = limit ~ /^>=/ ? median >= bar : median <= bar
    measured[++rows] = sprintf(format " (" format " to " format ")", median, least, most)
  }
  whats[rows] = what
  bars[rows] = limit
  runs[rows] = n
  details[rows] = detail
  verdicts[rows] = held ? "held" : "MISSED"
  missed += !held
}

function seconds(value) { return sprintf("%.3f s", value) }

function pair(name) {
  return seconds(median_of(name, 1)) " against " seconds(median_of(name, 2))
}

# `inverse`: the ratio of the rates, not of the times.
function add_ratio(what, name, limit, inverse,    values, i) {
  for (i = 1; i <= count[name]; ++i)
    values[i] = inverse ? number[name, 2, i] / number[name, 1, i] \
                        : number[name, 1, i] / number[name, 2, i]
  add_row(what, values, count[name], "%.3f", limit, count[name] ? pair(name) : "")
}

# The smaller one may have been measured several times a round.
function add_growth(what, larger, smaller, limit,    values, repeats, i) {
  repeats = count[smaller] / count[larger]
  for (i = 1; i <= count[larger]; ++i)
    values[i] = number[larger, 1, i] / number[smaller, 1, (i - 1) * repeats + 1]
  add_row(what, values, count[larger], "%.3f", limit,
          seconds(median_of(larger, 1)) " against " seconds(median_of(smaller, 1)))
}

function add_value(what, name, column, factor, format, limit,    values, i) {
  for (i = 1; i <= count[name]; ++i) values[i] = number[name, column, i] * factor
  add_row(what, values, count[name], format, limit, "")
}

# The larger of two: what the private bytes say, and what the pages in memory say.
function add_memory(what, name, format, limit, empty_counts,    values, i, private, resident) {
  private = median_of("memory-empty", 1)
  resident = median_of("memory-empty", 2)
  for (i = 1; i <= count[name]; ++i) {
    values[i] = number[name, 1, i] - private
    if (number[name, 2, i] - resident > values[i]) values[i] = number[name, 2, i] - resident
    values[i] += empty_counts ? private : 0
  }
  add_row(what, values, count[name], format, limit, sprintf("an empty program: %.1f MiB", private))
}

function add_start(    values, i) {
  for (i = 1; i <= count["self-test"]; ++i)
    values[i] = 1000 * (number["self-test", 1, i] - number["self-test", 2, i])
  add_row("start to end of the self-test, more than an empty program, in ms", values,
          count["self-test"], "%.0f", "<= 80", pair("self-test"))
}

function add_check(    values, i) {
  for (i = 1; i <= count["check"]; ++i)
    values[i] = 1000 * (number["check", 1, i] - number["check", 2, i])
  add_row("a check that finds nothing new, more than a bare request with the same answer, in ms", values,
          count["check"], "%.1f", "<= 30", pair("check"))
}

function add_rows() {
  add_ratio("rate of the digest of " int(512 / share) " MiB against the provider fed from memory",
            "digest", ">= 0.97", 1)
  details[rows] = details[rows] "; bare calls reach " ratio_of("digest-bare-reading")
  excuse_digest()
  add_ratio("backup of " megabytes(300) " in " files(2000) ", against the floor",
            "backup-bytes-1", "<= 1.05")
  add_ratio("verification of " megabytes(300) " in " files(2000) ", against the floor",
            "verification-bytes-1", "<= 1.05")
  add_growth("backup of 4 times the bytes", "backup-bytes-4", "backup-bytes-1", "<= 4.2")
  add_growth("verification of 4 times the bytes", "verification-bytes-4", "verification-bytes-1",
             "<= 4.2")
  add_growth("backup of 4 times the files", "backup-files-4", "backup-files-1", "<= 4.2")
  add_growth("verification of 4 times the files", "verification-files-4", "verification-files-1",
             "<= 4.2")
  add_ratio("backup of " files(20000) " of 1 KiB, against the floor", "backup-files-4", "<= 1.05")
  add_memory("peak memory for a file of " int(5120 / share) " MiB, over an empty program, in MiB",
             "memory-large-file", "%.1f", "<= 12", 0)
  add_memory("peak memory for the backup of " files(20000) ", in MiB", "memory-backup-files-4",
             "%.1f", "<= 24", 1)
  add_memory("peak memory for the verification of " files(20000) ", in MiB",
             "memory-verification-files-4", "%.1f", "<= 24", 1)
  add_ratio("download of " megabytes(300) " over HTTPS from the same machine, against the floor", "download",
            "<= 1.05")
  add_memory("peak memory for that download, over an empty program, in MiB", "memory-download", "%.1f",
             "<= 12", 0)
  add_check()
  add_value("application's exit to commit, in ms", "commit", 1, 1000, "%.1f", "<= 20")
  add_value("cancel marker to the broker's end, in ms", "cancel", 1, 1000, "%.0f", "<= 300")
  add_ratio("whole update without the setup program, against the floor", "update", "<= 1.10")
  details[rows] = details[rows] "; in it a flush of the volume, " flush()
  add_start()
  add_value("executable, in bytes", "size", 1, 1, "%d", "<= " size_bar)
  add_value("library, in bytes", "library-size", 1, 1, "%d", "<= " library_size_bar)
}

# Some systems, Wine among them, know the volumes but do not flush them.
function flush() {
  return sprintf("%.1f ms%s", 1000 * median_of("flush", 1),
                 median_of("flush", 2) == 1 ? "" : ", which this system refuses")
}

# A bar that bare calls miss as well, by as much, is none that the updater could hold.
function excuse_digest(    bare, bar) {
  bar = substr(bars[rows], 4) + 0
  ratio_of("digest-bare-reading")
  bare = median
  ratio_of("digest-against-bare-reading")
  if (verdicts[rows] == "MISSED" && bare < bar && median >= 0.99) {
    verdicts[rows] = "out of reach"
    --missed
  }
}

function megabytes(number) { return int(number / share) " MB" }
function files(number) { return int(number / share) " files" }

function mathematical(limit) {
  sub(/<=/, "≤", limit)
  sub(/>=/, "≥", limit)
  return limit
}

function print_page(    i, line) {
  print "# Performance\n"
  print "Measured by `scripts/bench` on " date ", on " machine ".\n"
  if (share > 1)
    print "**Tried out with a " share "th of the work (`--quick`): these figures mean little.**\n"
  print "| what | bar | measured: median (least to most) | rounds | the medians behind it | |"
  print "|---|---|---|---|---|---|"
  for (i = 1; i <= rows; ++i) {
    printf "| %s | %s | %s | %d | %s | %s |\n", whats[i], mathematical(bars[i]), measured[i], runs[i],
      details[i], verdicts[i]
    printf "%-12s %-62s %11s  %s\n", verdicts[i], whats[i], bars[i], measured[i] > table
  }
  print "\n![Seconds against bytes and against files, for the updater and the floor](performance.svg)\n"
  while ((getline line < "bench/explanation.md") > 0) print fill(line)
}

function ratio_of(name,    values, i) {
  for (i = 1; i <= count[name]; ++i) values[i] = number[name, 2, i] / number[name, 1, i]
  summarise(values, count[name])
  return sprintf("%.3f (%.3f to %.3f)", median, least, most)
}

# The explanation has measured figures in it.
function fill(line) {
  gsub(/@bare-reading@/, ratio_of("digest-bare-reading"), line)
  gsub(/@against-bare-reading@/, ratio_of("digest-against-bare-reading"), line)
  gsub(/@small-file@/, sprintf("%.2f", share * median_of("backup-files-4", 2) / 20), line)
  gsub(/@exit-floor@/, sprintf("%.1f ms", 1000 * median_of("commit", 2)), line)
  gsub(/@setup@/, sprintf("%.1f s", median_of("update-parts", 1)), line)
  gsub(/@prompt@/, sprintf("%.2f s", median_of("update-parts", 2)), line)
  gsub(/@application@/, sprintf("%.2f s", median_of("update-parts", 3)), line)
  return line
}
