# Compares the digest of a file with md5sum.
head -c 1073741824 /dev/urandom > "$work/file"
ours_once() { ours work digest "$work/file"; }
theirs_once() { theirs md5sum "$work/file"; }
alternate 5 ours_once theirs_once
row "digest of 1 GiB (MiB per second)" "≥ 0.95" 1024
