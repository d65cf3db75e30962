# Compares the log entries per second with a plain loop of open, append and close.
count=50000
# Standard error is discarded, as at a login.
ours_once() { timed "$work/ours" work log $count 2> /dev/null; }
theirs_once() { theirs work append "$HOME/.local/share/Zelto/Teravolant App/plain.log" $count; }
alternate 41 ours_once theirs_once
row "log entries per second" "≥ 0.80" $count
