# Log entries a second beside a plain loop of open, append and close.
count=100000
ours_once() { ours work log $count; }
theirs_once() { theirs work append "$HOME/.local/share/Zelto/Teravolant App/plain.log" $count; }
alternate 7 ours_once theirs_once
row "log entries a second" "≥ 0.80" $count
