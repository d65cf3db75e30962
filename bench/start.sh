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
fill_client 200
alternate 7 start by_hand
row "start with a client of 200 MiB (s)" "≤ 1.00"
end_client
