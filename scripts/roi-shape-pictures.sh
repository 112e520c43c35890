#!/bin/sh
# Draws one small picture per ROI kind into docs/images/ with the plug-in's own ROI renderer: each
# kind at angle 0 (left) and turned by 30 degrees (right). Usage: scripts/roi-shape-pictures.sh [BUILD_DIR]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
paint=$build/tools/roipaint/roipaint
out=$root/docs/images
mkdir -p "$out"

# picture NAME TYPE WIDTH HEIGHT [EXTRA-JSON]
picture() {
    extra=${5:-}
    left="{\"type\":\"$2\",\"center_x\":30,\"center_y\":32,\"width\":$3,\"height\":$4,\"angle\":0$extra}"
    right="{\"type\":\"$2\",\"center_x\":92,\"center_y\":32,\"width\":$3,\"height\":$4,\"angle\":30$extra}"
    # A small honeycomb field: the shifted middle row begins with a right half and ends with a left half.
cell() { echo "\"$1\":{\"type\":\"$2\",\"center_x\":$3,\"center_y\":$4,\"width\":$5,\"height\":32}"; }
echo "{\"model_001\":{\"ROIs\":{$(cell 1 HoneycombShorter 22 20 24),$(cell 2 HoneycombShorter 46 20 24),\
$(cell 3 HoneycombRight 16 44 12),$(cell 4 HoneycombShorter 34 44 24),$(cell 5 HoneycombLeft 52 44 12),\
$(cell 6 HoneycombShorter 22 68 24),$(cell 7 HoneycombShorter 46 68 24)}}}" |
    "$paint" --size 68x88 --scale 3 - "$out/roi-honeycomb-field.png" >/dev/null
echo "{\"model_001\":{\"ROIs\":{\"1\":$left,\"2\":$right}}}" |
        "$paint" --size 122x64 --scale 2 - "$out/roi-$1.png" >/dev/null
}

picture rect Rect 44 24
picture ellipse Ellipse 44 24
picture square Square 36 0
picture circle Circle 40 0
picture hexagon Hexagon 44 0
picture regular-5 Regular 44 0 ',"points":5'
picture honeycomb-longer HoneycombLonger 48 36
picture honeycomb-shorter HoneycombShorter 36 48
picture honeycomb-right HoneycombRight 24 48
picture honeycomb-left HoneycombLeft 24 48
echo "{\"model_001\":{\"ROIs\":{\"1\":{\"type\":\"Poly\",\"points\":[{\"x\":8,\"y\":10},{\"x\":50,\"y\":6},{\"x\":40,\"y\":30},{\"x\":56,\"y\":56},{\"x\":12,\"y\":50}]}}}}" |
    "$paint" --size 122x64 --scale 2 - "$out/roi-poly.png" >/dev/null

# A small honeycomb field: the shifted middle row begins with a right half and ends with a left half.
cell() { echo "\"$1\":{\"type\":\"$2\",\"center_x\":$3,\"center_y\":$4,\"width\":$5,\"height\":32}"; }
echo "{\"model_001\":{\"ROIs\":{$(cell 1 HoneycombShorter 22 20 24),$(cell 2 HoneycombShorter 46 20 24),\
$(cell 3 HoneycombRight 16 44 12),$(cell 4 HoneycombShorter 34 44 24),$(cell 5 HoneycombLeft 52 44 12),\
$(cell 6 HoneycombShorter 22 68 24),$(cell 7 HoneycombShorter 46 68 24)}}}" |
    "$paint" --size 68x88 --scale 3 - "$out/roi-honeycomb-field.png" >/dev/null
