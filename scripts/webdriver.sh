# SPDX-License-Identifier: GPL-3.0-or-later
#
# Sourced after common.sh by the scripts that use a page in Chromium as a person would, over WebDriver.
# They set `scratch`, a directory for what the browser keeps, and `pictures`, one for screenshots.

driver="" session="" browser=""
need_browser() { need chromium chromium-driver curl fonts-dejavu-core jq; }
stop_browser() {
  [ -z "$session" ] || (request DELETE "$session" >/dev/null) || true
  [ -z "$browser" ] || kill -KILL "$browser" 2>/dev/null || true
  [ -z "$driver" ] || { kill "$driver" && wait "$driver"; } 2>/dev/null || true
}
fail() {
  printf '%s\n' "$@" >&2
  exit 1
}
# expect <what> <expected> <actual>
expect() { [ "$2" = "$3" ] || fail "$1" "  expected: $2" "  but was:  $3"; }

# request <method> <path> [JSON]: what WebDriver answers, or its complaint and failure.
request() {
  local answer
  answer="$(curl --silent --fail-with-body --noproxy '*' --max-time 30 --request "$1" \
    ${3+--header 'Content-Type: application/json' --data-binary @-} "$base$2" <<<"${3-}")" ||
    fail "WebDriver, $1 $2: $(jq --raw-output .value.message <<<"$answer" || true)"
  jq --compact-output .value <<<"$answer"
}
# js <body of a function>: what it returned, as JSON.
js() { request POST "$session/execute/sync" "$(jq --raw-input --slurp '{script: ., args: []}' <<<"$1")"; }
devtools() {
  request POST "$session/goog/cdp/execute" "$(jq -n --arg cmd "$1" --argjson params "$2" '{$cmd, $params}')" >/dev/null
}
log() { request POST "$session/se/log" "{\"type\": \"$1\"}"; }
go_to() { request POST "$session/url" "$(jq -n --arg url "$1" '{$url}')" >/dev/null; }
on_element() { # <CSS selector> <what to do> <JSON>
  local found
  found="$(request POST "$session/element" "$(jq -n --arg value "$1" '{using: "css selector", $value}')")"
  request POST "$session/element/$(jq -r '.[]' <<<"$found")/$2" "$3" >/dev/null
}
wait_for() { # <what> <JavaScript condition>
  local is_so
  for _ in {1..60}; do
    is_so="$(js "return Boolean($2)")"
    [ "$is_so" = false ] || return 0
    sleep 0.1
  done
  fail "$1 did not happen"
}
# picture <name> <width> <is it a phone?>: of the whole page, which must not be wider than the screen.
picture() {
  local screen="{\"width\": $2, \"height\": 800, \"deviceScaleFactor\": 1, \"mobile\": $3}" height
  devtools Emulation.setDeviceMetricsOverride "$screen"
  expect "Width of the page, $1" "$2" "$(js 'return Math.max(document.documentElement.scrollWidth, innerWidth)')"
  height="$(js 'return document.documentElement.scrollHeight')"
  devtools Emulation.setDeviceMetricsOverride "$(jq --argjson height "$height" '. + {$height}' <<<"$screen")"
  request GET "$session/screenshot" | jq -r . | base64 -d >"$pictures/$1.png"
  devtools Emulation.clearDeviceMetricsOverride '{}'
}
start_browser() {
  local port started
  touch "$scratch/driver.log"
  chromedriver --port=0 >>"$scratch/driver.log" 2>&1 &
  driver=$!
  for _ in {1..100}; do
    port="$(sed -n 's/.*started successfully on port \([0-9]*\).*/\1/p' "$scratch/driver.log")"
    [ -z "$port" ] || break
    sleep 0.1
  done
  [ -n "$port" ] || fail "chromedriver did not start:" "$(cat "$scratch/driver.log")"
  base="http://127.0.0.1:$port/session"
  started="$(request POST "" "$(jq -n --arg profile "$scratch/profile" '{capabilities: {alwaysMatch: {
    "goog:loggingPrefs": {browser: "ALL", performance: "ALL"},
    "goog:chromeOptions": {args: ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync", "--hide-scrollbars",
      "--window-size=1280,900", "--user-data-dir=\($profile)"]}}}}')")"
  session="/$(jq -r .sessionId <<<"$started")"
  browser="$(jq -r '.capabilities["goog:processID"] // empty' <<<"$started")"
}
