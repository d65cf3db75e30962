# Compares an update, from the feed to the staged bundle, with curl, sha256sum, bsdtar and sync. Both
# download over https from a server on loopback.
web=$work/web
installed=$work/Applications/Teravolant.app

serve() {
    mkdir -p "$web"
    openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost \
        -addext subjectAltName=DNS:localhost -keyout "$work/tls.key" -out "$work/tls.pem" 2> /dev/null
    cat > "$work/nginx.conf" << CONF
daemon off; pid $work/nginx.pid; error_log $work/nginx.log;
events {}
http {
    access_log off; sendfile on; client_body_temp_path $work/t1; proxy_temp_path $work/t2;
    fastcgi_temp_path $work/t3; uwsgi_temp_path $work/t4; scgi_temp_path $work/t5;
    server { listen 127.0.0.1:8443 ssl; ssl_certificate $work/tls.pem;
             ssl_certificate_key $work/tls.key; root $web; }
}
CONF
    nginx -e "$work/nginx.log" -c "$work/nginx.conf" &
    trap 'kill $(cat "$work/nginx.pid")' EXIT
    for _ in $(seq 500); do
        curl -s --cacert "$work/tls.pem" -o /dev/null https://localhost:8443/ && return
        sleep 0.01
    done
    cat "$work/nginx.log" >&2
    exit 1
}

# Makes an installed bundle, whose executable runs one update cycle, and its next version, with
# content that can't be compressed.
publish() { # MIB
    rm -rf "$work/Applications" "$work/next" "${web:?}"/* "$HOME/.cache"
    mkdir -p "$work/Applications" "$work/next"
    cp -a build/release/Teravolant.app "$work/Applications/"
    cp "$(command -v work)" "$installed/Contents/MacOS/Teravolant"
    sed -i "s#<array></array>#<array><string>$(cat "$work/key.public")</string></array>#" \
        "$installed/Contents/Info.plist"
    cp -a "$installed" "$work/next/"
    sed -i 's#<string>[0-9.]*</string>#<string>99.0.0.1</string>#' \
        "$work/next/Teravolant.app/Contents/Info.plist"
    for part in 1 2 3 4 5 6 7 8 9 10; do
        head -c "$(($1 * 1048576 / 10))" /dev/urandom \
            > "$work/next/Teravolant.app/Contents/Resources/part$part"
    done
    teravolant-release pack "$work/next/Teravolant.app" --output "$web/update.tar.zst"
    teravolant-release feed "$web/update.tar.zst" --bundle "$work/next/Teravolant.app" \
        --private-key "$work/key" --output "$web/release.mac"
    sync
}

stage() {
    rm -rf "$HOME/.cache" "$work/Applications/".T*
    sync
    ours "$installed/Contents/MacOS/Teravolant" update https://localhost:8443/release.mac
}

by_hand() {
    rm -rf "$work/hand"
    mkdir "$work/hand"
    sync
    theirs bash -ec "curl -sS --cacert '$work/tls.pem' -o '$work/hand/archive' \
                         https://localhost:8443/update.tar.zst
                     sha256sum '$work/hand/archive' > /dev/null
                     bsdtar -x -f '$work/hand/archive' -C '$work/hand'
                     sync"
}

# Samples the resident memory of the launcher and its programs, in MiB.
together() {
    : > "$work/sums"
    while sleep 0.02; do
        ps -C Teravolant,fetch,unpack -o rss= | awk '{ sum += $1 } END { printf "%.1f\n", sum / 1024 }' \
            >> "$work/sums"
    done
}

serve
export SSL_CERT_FILE=$work/tls.pem
teravolant-release keygen --private-key "$work/key" --public-key "$work/key.public" > /dev/null
publish 200
alternate 5 stage by_hand
row "update of 200 MiB, feed to staged (s)" ""
# The validation of the staged bundle, a part of the update. By hand: the loader, the client archive and
# the feed.
validate() {
    ours work validate "$work/next/Teravolant.app" "$work"
}
validate_by_hand() {
    theirs bash -ec "for file in '$work/next/Teravolant.app/Contents/'{MacOS,Helpers}/*; do
                         ldd -r \"\$file\" > /dev/null || true
                     done
                     tar tzf '$work/next/Teravolant.app/Contents/Resources/client.tar.gz' > /dev/null
                     curl -sS --cacert '$work/tls.pem' -o /dev/null https://localhost:8443/release.mac"
}
alternate 9 validate validate_by_hand
row "  of it, validation (s)" "≤ 0.15 s"
for size in 10 1024; do
    publish $size
    rm "$work/ours"
    together & sampler=$!
    stage
    kill $sampler
    # shellcheck disable=SC2059 # one format for all rows
    printf "$format" "update of $size MiB (s)" "$(printf %.4f "$(column 1 ours)")" "" "" "" "$(column 2 ours)"
    # shellcheck disable=SC2059 # one format for all rows
    printf "$format" "  launcher and programs together (MiB)" "$(sort -n "$work/sums" | tail -n 1)" "" "" "≤ 32" ""
done
