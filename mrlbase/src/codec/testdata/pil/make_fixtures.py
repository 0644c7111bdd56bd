#!/usr/bin/python3
"""Writes small images with Python's PIL and, beside each, the RGBA pixels it must decode to.

Run from anywhere: python3 make_fixtures.py. Every image is 17x13 so odd row lengths, padding and
partial bytes are exercised. NAME.rgba holds width*height*4 bytes (R, G, B, A, rows top-down) of
the image's first frame; NAME.page1.rgba holds the second page of a multi-page file. For lossless
formats the dump is the image that was saved; for JPEG it is what PIL itself decodes, to be
matched within a small tolerance.
"""
import os

from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
W, H = 17, 13


def rgb_pattern(seed):
    im = Image.new("RGB", (W, H))
    im.putdata([((x * 15 + seed) % 256, (y * 19 + 3 * seed) % 256, (x * y * 7 + seed * 5) % 256)
                for y in range(H) for x in range(W)])
    return im


def smooth_pattern():
    # Gentle gradients, so JPEG error stays small and the tolerance can be tight.
    im = Image.new("RGB", (W, H))
    im.putdata([(40 + x * 10, 30 + y * 12, 200 - x * 4 - y * 5) for y in range(H) for x in range(W)])
    return im


def palette_image(colours):
    im = Image.new("P", (W, H))
    palette = []
    for i in range(colours):
        palette += [(i * 53) % 256, (i * 101 + 17) % 256, (255 - i * 29) % 256]
    im.putpalette(palette)
    im.putdata([(x + 2 * y) % colours for y in range(H) for x in range(W)])
    return im


def dump(name, im):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(im.convert("RGBA").tobytes())


def save(name, im, reference, **options):
    path = os.path.join(HERE, name)
    im.save(path, **options)
    dump(name + ".rgba", reference)


def main():
    # PNG: palette with a tRNS chunk that gives several entries partial alpha.
    p = palette_image(12)
    alphas = bytes([0, 64, 128, 200] + [255] * 8)
    p.info["transparency"] = alphas
    save("palette_trns.png", p, p, transparency=alphas)

    # JPEG: the reference is PIL's own decode of the written file.
    base = smooth_pattern()
    for name, options in (("baseline.jpg", {"quality": 92}),
                          ("progressive.jpg", {"quality": 92, "progressive": True})):
        path = os.path.join(HERE, name)
        base.save(path, **options)
        with Image.open(path) as written:
            dump(name + ".rgba", written)

    # GIF: palette with one transparent index.
    g = palette_image(16)
    g.info["transparency"] = 5
    save("transparent.gif", g, g, transparency=5)

    # 16-bit gray in PNG and TIFF: narrowed to its high byte.
    deep = Image.new("I;16", (W, H))
    values = [(x * 2801 + y * 1117) % 65536 for y in range(H) for x in range(W)]
    deep.putdata(values)
    high = Image.new("L", (W, H))
    high.putdata([v >> 8 for v in values])
    save("gray16.png", deep, high)
    save("gray16.tif", deep, high)

    # TIFF: LZW colour, and two LZW pages of different content and mode.
    rgb = rgb_pattern(1)
    save("lzw.tif", rgb, rgb, compression="tiff_lzw")
    page0, page1 = rgb_pattern(7), palette_image(9).convert("L")
    save("multipage.tif", page0, page0, compression="tiff_lzw", save_all=True, append_images=[page1])
    dump("multipage.tif.page1.rgba", page1)
    # TIFF: gray with unassociated alpha.
    la = Image.merge("LA", (rgb_pattern(5).convert("L"), Image.linear_gradient("L").resize((W, H))))
    save("gray_alpha.tif", la, la, compression="tiff_adobe_deflate")
    # TIFF: bilevel in CCITT group 4.
    bilevel = Image.new("1", (W, H))
    bilevel.putdata([255 if (x * x + y * 3) % 5 < 2 else 0 for y in range(H) for x in range(W)])
    save("group4.tif", bilevel, bilevel, compression="group4")

    # BMP: 8 bits with a palette, and 32 bits with alpha in the fourth byte.
    p8 = palette_image(40)
    save("palette8.bmp", p8, p8)
    rgba = rgb_pattern(3).convert("RGBA")
    rgba.putalpha(Image.linear_gradient("L").resize((W, H)))
    save("rgba32.bmp", rgba, rgba)

    # JPEG 2000 (PIL's default is the reversible, lossless wavelet).
    j = rgb_pattern(11)
    save("lossless.jp2", j, j)


if __name__ == "__main__":
    main()
