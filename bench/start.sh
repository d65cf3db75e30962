# Compares a start without an update check with a shell script that runs the same commands. Both
# replace the client folder of an earlier start.
bundle=$work/Teravolant.app
client=$HOME/.teravolant/teravolant.app
helpers=$bundle/Contents/Helpers

fill_client() { # MIB
    rm -rf "$work/client"
    mkdir "$work/client"
    cp -a build/release/Teravolant.app "$work/"
    tar xzf build/release/Teravolant.app/Contents/Resources/client.tar.gz -C "$work/client"
    head -c "$(($1 * 1048576))" /dev/urandom > "$work/client/teravolant.app/Contents/content"
    tar czf "$bundle/Contents/Resources/client.tar.gz" -C "$work/client" teravolant.app
}

end_client() {
    while pkill -x teravolant; do
        sleep 0.01
    done
    sync
}

start() {
    end_client
    ours "$bundle/Contents/MacOS/Teravolant" --notupdate
}

by_hand() {
    end_client
    theirs sh "$work/by_hand"
}

cat > "$work/by_hand" << HAND
ps -ax -o exe= | grep '$client/Contents/MacOS/teravolant'
rm -rf '$HOME/.teravolant'
mkdir '$HOME/.teravolant'
tar xzf '$bundle/Contents/Resources/client.tar.gz' -C '$HOME/.teravolant'
'$helpers/open' -a '$client' --args --notupdate -unpackapp '$bundle/Contents/MacOS/teravolant'
HAND

fill_client 1
alternate 31 start by_hand
row "start with a client of 1 MiB (s)" "≤ 1.10"
# A start of a version that is not confirmed counts itself and confirms the version. After three
# failed ones, the bundles are exchanged and the old launcher runs.
staging=$work/.Teravolant.app.update-$UID
keep_old_bundle() {
    end_client
    rm -rf "$staging"
    mkdir -m 700 "$staging"
    cp -a "$bundle" "$staging/old.app"
}
unconfirmed_start() { # ENTRIES
    keep_old_bundle
    printf -v entries %-64s "$1"
    cat > "$staging/first-starts" << RECORD
teravolant-processes 1
${entries// /.}
<plist version="1.0"><dict><key>version</key><string>1.0.0.1</string><key>previous</key>
<string>$(printf %s "$staging/old.app" | base64 -w 0)</string></dict></plist>
RECORD
    sync
    ours "$bundle/Contents/MacOS/Teravolant" --notupdate
}
first_start() { unconfirmed_start ""; }
start_after_failed_ones() { unconfirmed_start xxx; }
other_start() {
    keep_old_bundle
    sync
    theirs "$bundle/Contents/MacOS/Teravolant" --notupdate
}
alternate 31 first_start other_start
row "first start beside another one (s)" "+ 2 ms"
alternate 15 start_after_failed_ones other_start
row "start that goes back beside another one (s)" ""
fill_client 200
alternate 7 start by_hand
row "start with a client of 200 MiB (s)" "≤ 1.00"
end_client
