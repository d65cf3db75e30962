# Compares the search for a bundle in a folder of 100,000 items without one with find.
tree=$work/tree
for folder in $(seq 100); do
    mkdir -p "$tree/folder$folder/inner"
    ( cd "$tree/folder$folder/inner" && seq 998 | xargs touch )
done
mkdir -p "$work/Match.app/Contents/MacOS"
cp build/release/Teravolant.app/Contents/Info.plist "$work/Match.app/Contents/"
cp "$(command -v work)" "$work/Match.app/Contents/MacOS/Teravolant"
ours_once() { ours "$work/Match.app/Contents/MacOS/Teravolant" match "$tree"; }
theirs_once() { theirs find "$tree" -iname '*.app' -type d; }
alternate 15 ours_once theirs_once
row "bundle matching in 100,000 items (s)" "≤ 1.50"
