# The verdict of scripts/bench: a line for each figure, and a failure unless all are measured and as
# wanted. Reads Google Benchmark's reports. $calls has a line for each call whose system calls were
# counted: its name, a tab and the counts.

def runs($call): map(select(.run_type == "iteration" and (.name | startswith($call + "/"))));
# Of several repetitions the least time: whatever else the machine does only adds to it.
def time($call): runs($call) | map(.cpu_time) | min;
# Google Benchmark 1.7 keeps the memory of the last repetition alone.
def memory($call): runs($call) | max_by(.repetition_index);
def fit($call): map(select(.aggregate_name == "BigO" and (.name | startswith($call + "/")))) | .[0].big_o;
# Null too if two calls make no more of them than one.
def system_calls($call):
    $calls | split("\n") | map(split("\t") | select(.[0] == $call and .[1] != "")) | .[0][1];

# Figures are null that were not measured.
def row($what; $figures; met; text):
    if any($figures[]; . == null) then "NOT MEASURED  \($what)"
    elif met then "as wanted     \($what): \(text)"
    else "FAILED        \($what): \(text)" end;

def rounded: . * 100 | round / 100;

def time_row($call; $what; $most):
    [time("library/" + $call), time("floor/" + $call)] as [$library, $floor]
    | row("CPU time of \($what)"; [$library, $floor]; $library <= $most * $floor;
          "\($library | rounded) us, the floor \($floor | rounded) us; " +
          "\($library / $floor | rounded) times, at most \($most) wanted");

def calls_row($call; $what):
    [system_calls("library/" + $call), system_calls("floor/" + $call)] as [$library, $floor]
    | row("system calls of \($what)"; [$library, $floor]; $library == $floor;
          if $library == $floor then "\($library), as the floor" else "\($library), the floor \($floor)" end);

map(.benchmarks[])
| [
    time_row("query/1"; "a query"; 2),
    time_row("ufs40/1"; "a zone of UFS 4.0"; 1.5),
    time_row("ufs31/1"; "a zone of UFS 3.1"; 1.5),
    time_row("ufs40/1024"; "a request of 1 MiB"; 1.5),
    (fit("library/ufs40") as $fit
     | row("growth of the CPU time of requests, as Google Benchmark fits it"; [$fit];
           # N times its logarithm comes of noise now and then. Beside a linear floor, the time of
           # the longest request tells growth that is this little.
           $fit == "N" or $fit == "NlgN"; "\($fit); N or NlgN wanted")),
    calls_row("query/1"; "a query"),
    calls_row("ufs40/1"; "a zone of UFS 4.0"),
    calls_row("ufs31/1"; "a zone of UFS 3.1"),
    calls_row("ufs40/64"; "a request of 64 KiB"),
    ([memory("library/ufs40/1", "library/ufs40/1024")] as [$zone, $request]
     | row("allocations of a request of 1 MiB"; [$zone, $request];
           $request.allocs_per_iter <= 1024 * $zone.allocs_per_iter;
           "\($request.allocs_per_iter / 1024 | rounded) a zone, at most the " +
           "\($zone.allocs_per_iter | rounded) of a single zone wanted"),
       row("memory held by a request of 1 MiB"; [$zone, $request];
           $request.max_bytes_used <= 2 * $zone.max_bytes_used;
           "\($request.max_bytes_used) bytes, a single zone \($zone.max_bytes_used); " +
           "at most 2 times that wanted"))
  ]
| .[],
  (map(select(startswith("as wanted") | not)) | length | select(. > 0)
   | "Figures that are not measured, or not as wanted: \(.)", ("" | halt_error(1)))
