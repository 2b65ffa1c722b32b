#!/bin/sh
# Installs what the build needs, builds the library, the tool and the page server,
# renders a template, and serves and shows a page.
set -eu
cd "$(dirname "$0")/.."

say() { echo "== $*"; }

say "looking for what the build needs"
sh tools/setup.sh demo

say "building"
sh tools/configure.sh release
cmake --build build/release -j "$(nproc)" --target kro page_server

say "build/release/bin/kro run examples/invoice.xpp"
build/release/bin/kro run examples/invoice.xpp
echo

site=examples/page_server/site/page_server.ini
say "build/release/bin/page_server --config $site"
ports=$(mktemp)
build/release/bin/page_server --config "$site" --port 0 --admin 0 > "$ports" &
server=$!
trap 'kill "$server" 2> /dev/null || :; rm -f "$ports"' EXIT
until grep -q admin "$ports"; do
    kill -0 "$server" || exit 1
    sleep 0.1
done
page="http://$(sed -n 's/^http //p' "$ports")/?name=you"
admin="telnet://$(sed -n 's/^admin //p' "$ports")"
say "curl '$page'"
curl -sS "$page"
say "echo stop | curl $admin"
echo stop | curl -sS "$admin"
wait "$server"

echo
echo "Try next: build/release/bin/kro eval 'hex(255, 4)', or change examples/invoice.xpp and run it again. Or start"
echo "the page server as above, open http://127.0.0.1:8080/ in a browser, and change examples/page_server/site/home.xpp."
echo "Then read docs/script.md for the language, or README.md for a first program of your own."
