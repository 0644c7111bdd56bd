#!/usr/bin/python3
"""Draws examples/page.png, the page that `zeltool demo` edits, and the README thumbnails.

    /usr/bin/python3 examples/make_page.py                 # writes examples/page.png
    /usr/bin/python3 examples/make_page.py --thumbs OUT L,T,R,B
        # docs/demo-before.png, and docs/demo-after.png from the demo's OUT with the content
        # rectangle it printed drawn in green

Needs Debian's python3-pil and the fonts of scripts/install-deps.sh. The PNG is committed, so
building and testing never run this script.
"""
import os
import sys

from PIL import Image, ImageDraw, ImageFont

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
SANS = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
SANS_BOLD = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"
CJK = "/usr/share/fonts/truetype/wqy/wqy-microhei.ttc"

# The pen stroke, in page pixels. tools/zeltool_demo.cpp erases exactly this polyline.
STROKE = [(140, 1010), (250, 955), (370, 1045), (490, 965), (610, 1040), (730, 985)]
STROKE_WIDTH = 9


def make_page(path):
    page = Image.new("RGB", (874, 1240), "white")  # A5 at 150 dpi
    draw = ImageDraw.Draw(page)
    draw.text((90, 90), "Site inspection notes", font=ImageFont.truetype(SANS_BOLD, 40), fill=(20, 20, 20))
    body = ImageFont.truetype(SANS, 22)
    lines = [
        "Building B, third floor, east wing.",
        "Fire doors close and latch; two hinges need oil.",
        "Emergency lights pass the 30 minute test.",
        "Water stain above room 312 has not grown.",
    ]
    for i, line in enumerate(lines):
        draw.text((90, 180 + 40 * i), line, font=body, fill=(40, 40, 40))
    draw.text((90, 360), "检查结果：合格。下次检查定于六月。", font=ImageFont.truetype(CJK, 26), fill=(30, 30, 30))
    # A boxed remark.
    draw.rectangle((90, 450, 784, 640), outline=(0, 0, 0), width=3)
    remark = ["Remark: replace the cracked pane in", "stairwell window S-3 before winter."]
    for i, line in enumerate(remark):
        draw.text((120, 490 + 44 * i), line, font=body, fill=(60, 60, 60))
    draw.text((90, 720), "Inspector: L. Moreau        Date: 2026-03-14", font=body, fill=(40, 40, 40))
    # The pen stroke the demo removes.
    draw.line(STROKE, fill=(28, 60, 170), width=STROKE_WIDTH, joint="curve")
    page.save(path, optimize=True)


def make_thumbs(after, rect):
    for source, name in ((os.path.join(HERE, "page.png"), "demo-before.png"), (after, "demo-after.png")):
        image = Image.open(source).convert("RGB")
        if rect and source == after:
            ImageDraw.Draw(image).rectangle(rect, outline=(0, 160, 60), width=4)
        image.thumbnail((300, 430))
        image.save(os.path.join(ROOT, "docs", name), optimize=True)


if __name__ == "__main__":
    if len(sys.argv) in (3, 4) and sys.argv[1] == "--thumbs":
        make_thumbs(sys.argv[2], [int(v) for v in sys.argv[3].split(",")] if len(sys.argv) == 4 else None)
    else:
        make_page(os.path.join(HERE, "page.png"))
