# The digest of a file compared with md5sum.
head -c 1073741824 /dev/urandom > "$work/file"
ours_once() { ours work digest "$work/file"; }
theirs_once() { theirs md5sum "$work/file"; }
alternate 5 ours_once theirs_once
row "digest of 1 GiB (MiB a second)" "≥ 0.95" 1024
