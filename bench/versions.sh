# How the time of a version comparison grows with the length of the versions: compares long versions
# ("ours") with short versions ("theirs") of as many bytes in total.
ours_once() { ours work versions 1048576 1000; }
theirs_once() { theirs work versions 1024 1024000; }
alternate 5 ours_once theirs_once
for versions in "ours 1000 1 MiB" "theirs 1024000 1 KiB"; do
    read -r whose count length <<< "$versions"
    # shellcheck disable=SC2059 # one format for all rows
    printf "$format" "version comparison, $length (µs)" \
        "$(column 1 "$whose" | awk -v count="$count" '{ printf "%.2f", $1 / count * 1e6 }')" "" "" "" ""
done
row "the same bytes in 1 MiB and in 1 KiB (s)" "≤ 1.10"
