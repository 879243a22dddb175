#!/usr/bin/env bash
# slewweb's browser test: slewd, slewvideo and slewweb on a fresh state folder,
# the page driven in headless Chromium (browser_test.mjs).
#
# run_browser_test.sh BUILD_FOLDER [SCREENSHOT]
source "$(dirname "$0")/../lib/start_head.sh"
need chromium node
npm_ci puppeteer-core
start_head
start_server slewweb --listen 127.0.0.1:0 --video "${http#http://}"
url=$(await_line "$state/server.out" 'http://[0-9.:]*/')
# Node and Chromium in a process group of their own, so cleanup ends both.
setsid node "$here/browser_test.mjs" "$url" "$build/slewctl" "$state/cam" "${2:-$build/slewweb.png}" &
node_pid=-$!
status=0
wait "${node_pid#-}" || status=$?
node_pid=""
finish "$status"
