#!/usr/bin/env bash
# Opens the page clksim --report makes of a scenario in headless chromium: the
# page's own script must have drawn one TE, MTIE and TDEV curve per engine and
# the four class masks, and read the verdicts from the summary; a screenshot
# of it must not be blank.
# Usage: browser_check.sh CLKSIM SCENARIO SCRATCH_DIR
set -euo pipefail
browser=$(command -v chromium || command -v chromium-browser || true)
[ -n "$browser" ] || { echo "browser check: no chromium (scripts/deps.sh check)"; exit 77; }
mkdir -p "$3"
scenario=$(realpath "$2")
cd "$3"
"$1" --only te_judged --report report.html "$scenario" >run.log
# Root has no sandbox; a profile of its own keeps runs apart.
run() { timeout 120 "$browser" --headless --no-sandbox --disable-gpu --user-data-dir="$PWD/profile" "$@" 2>browser.log; }
run --dump-dom "file://$PWD/report.html" >dom.html
want='engines=1 te=1 mtie=1 tdev=1 masks=4 verdicts=unit 0:C'
got=$(sed -n 's/.*<p id="check">\([^<]*\)<.*/\1/p' dom.html)
[ "$got" = "$want" ] || { echo "browser check: the page shows '$got', expected '$want'"; exit 1; }
run --hide-scrollbars --window-size=900,1600 --screenshot="$PWD/page.png" "file://$PWD/report.html" >/dev/null
python3 - page.png <<'PY'
import struct, sys, zlib
data = open(sys.argv[1], 'rb').read()
assert data[:8] == b'\x89PNG\r\n\x1a\n', 'not a PNG'
pos, idat, w, h = 8, b'', 0, 0
while pos < len(data):
    n, kind = struct.unpack('>I4s', data[pos:pos + 8])
    body = data[pos + 8:pos + 8 + n]
    if kind == b'IHDR':
        w, h, depth, color = struct.unpack('>IIBB', body[:10])
        assert depth == 8 and color in (2, 6), f'unexpected PNG format {depth}/{color}'
        bpp = 3 if color == 2 else 4
    elif kind == b'IDAT':
        idat += body
    pos += 12 + n
raw, stride, prev, colors, dark = zlib.decompress(idat), w * bpp, bytearray(w * bpp), set(), 0
for y in range(h):
    f, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
    for i in range(stride):
        a, b = (line[i - bpp] if i >= bpp else 0), prev[i]
        c = prev[i - bpp] if i >= bpp else 0
        p = a + b - c
        pred = [0, a, b, (a + b) // 2, a if abs(p - a) <= min(abs(p - b), abs(p - c)) else b if abs(p - b) <= abs(p - c) else c][f]
        line[i] = (line[i] + pred) & 255
    for x in range(0, stride, bpp):
        px = bytes(line[x:x + 3])
        colors.add(px)
        dark += sum(px) < 384
    prev = line
# Text, table and curves: many colours, and a fair share of dark pixels on the white page.
if len(colors) < 16 or dark < w * h // 200:
    sys.exit(f'browser check: the screenshot looks blank ({len(colors)} colours, {dark} dark pixels)')
print(f'browser check: {w}x{h}, {len(colors)} colours, {dark} dark pixels')
PY
echo "browser check: $got"
