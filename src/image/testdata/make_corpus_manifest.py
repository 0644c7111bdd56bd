#!/usr/bin/python3
"""Writes corpus_manifest.txt: what every file of the public image corpus must decode to.

Run by hand with Debian's python3 (PIL 9.4 with libtiff, OpenJPEG, libjpeg-turbo):

    /usr/bin/python3 src/image/testdata/make_corpus_manifest.py [TESTDATA_DIR]

PIL is the independent oracle. For every file it records either `refused` or the size and a
coarse signature of the first frame: the picture cut into 4x4 blocks, each block's mean red,
green and blue premultiplied by alpha, and mean alpha, as 64 hex bytes (row-major blocks, R G B A).
Premultiplying means a colour under a fully transparent pixel does not count; block means mean a
different IDCT rounding passes while a wrong orientation, colour, white point or alpha does not.

Where the decoders' rule and PIL legitimately differ, EXCEPTIONS below says what to expect
instead and why; the argued reason lands in the manifest next to the entry. TWINS lists the
reference pictures the corpus ships beside some files; the test compares those pixel by pixel.
"""

import io
import os
import struct
import sys
import zlib

import numpy as np
from PIL import Image, ImageOps, TiffImagePlugin

HERE = os.path.dirname(os.path.abspath(__file__))
ROOTS = ("imagecorpus/files", "pngsuite")
EXTENSIONS = (".bmp", ".gif", ".jpg", ".jpeg", ".jp2", ".j2k", ".jpx", ".jpf", ".j2c", ".png", ".tif", ".tiff")
GRID = 4
LOSSLESS_TOLERANCE = 3
LOSSY_TOLERANCE = 6

# Leading bytes of the formats the decoders handle; anything else is refused by signature.
SIGNATURES = (b"\x89PNG\r\n\x1a\n", b"\xff\xd8\xff", b"GIF87a", b"GIF89a", b"II*\0", b"MM\0*", b"II+\0",
              b"MM\0+", b"\0\0\0\x0cjP  \r\n\x87\n", b"\xff\x4f\xff\x51", b"\x97JB2\r\n\x1a\n", b"BM")


def block_ranges(n):
    out = []
    for i in range(GRID):
        lo = i * n // GRID
        hi = max(lo + 1, (i + 1) * n // GRID)
        out.append((lo, min(hi, n)))
    return out


def signature(rgba):
    """rgba: HxWx4 float array of 0..255 samples, straight alpha."""
    h, w = rgba.shape[:2]
    a = rgba[:, :, 3:4] / 255.0
    pre = np.concatenate([rgba[:, :, :3] * a, rgba[:, :, 3:4]], axis=2)
    out = bytearray()
    for y0, y1 in block_ranges(h):
        for x0, x1 in block_ranges(w):
            means = pre[y0:y1, x0:x1].reshape(-1, 4).mean(axis=0)
            out += bytes(int(min(255, max(0, np.floor(m + 0.5)))) for m in means)
    return out.hex()


def to_rgba(im, png_gray_bits=8, tiff_bits=16):
    """The picture as HxWx4 float samples 0..255: deep samples scaled down by their bit depth, a
    gray tRNS made alpha, CMYK and CIELab converted."""
    mode = im.mode
    trns = im.info.get("transparency")
    if mode in ("I;16", "I;16L", "I;16B", "I;16N", "I"):
        v = np.asarray(im, dtype=np.float64)
        top = (1 << min(tiff_bits, 16)) - 1
        if v.max() > top:
            raise ValueError("samples beyond their bit depth")
        g = np.clip(v * 255.0 / top, 0, 255)
        a = np.where(v == trns, 0.0, 255.0) if isinstance(trns, int) else np.full_like(g, 255)
        return np.dstack([g, g, g, a])
    if mode == "F":
        raise ValueError("float samples")
    if mode == "CMYK":
        return cmyk_to_rgba(np.asarray(im, dtype=np.float64))
    if mode == "LAB":
        return lab_to_rgba(np.asarray(im, dtype=np.float64))
    if mode == "L" and isinstance(trns, int) and png_gray_bits < 8:
        # PIL widens the gray levels of a 1, 2 or 4-bit PNG but not its tRNS level.
        g = np.asarray(im, dtype=np.float64)
        a = np.where(g == trns * 255 // ((1 << png_gray_bits) - 1), 0.0, 255.0)
        return np.dstack([g, g, g, a])
    return np.asarray(im.convert("RGBA"), dtype=np.float64)


def cmyk_to_rgba(cmyk):
    # Ink multiplied by the black plate, the conversion the decoders document.
    k = 255.0 - cmyk[:, :, 3]
    rgb = [(255.0 - cmyk[:, :, i]) * k / 255.0 for i in range(3)]
    return np.dstack(rgb + [np.full_like(k, 255)])


def lab_to_rgba(lab):
    # CIELab (D50, as TIFF stores it: L 0..255, a and b signed bytes) to sRGB through XYZ with
    # Bradford adaptation to D65; L 100 with a = b = 0 is white.
    L = lab[:, :, 0] * 100.0 / 255.0
    a = np.where(lab[:, :, 1] > 127, lab[:, :, 1] - 256, lab[:, :, 1])
    b = np.where(lab[:, :, 2] > 127, lab[:, :, 2] - 256, lab[:, :, 2])
    fy = (L + 16) / 116
    fx = fy + a / 500
    fz = fy - b / 200

    def finv(t):
        return np.where(t > 6 / 29, t ** 3, 3 * (6 / 29) ** 2 * (t - 4 / 29))

    d50 = (0.9642, 1.0, 0.8249)
    xyz = np.stack([finv(fx) * d50[0], finv(fy) * d50[1], finv(fz) * d50[2]], axis=-1)
    bradford = np.array([[0.9555766, -0.0230393, 0.0631636],
                         [-0.0282895, 1.0099416, 0.0210077],
                         [0.0122982, -0.0204830, 1.3299098]])
    to_srgb = np.array([[3.2404542, -1.5371385, -0.4985314],
                        [-0.9692660, 1.8760108, 0.0415560],
                        [0.0556434, -0.2040259, 1.0572252]])
    lin = np.clip(xyz @ (to_srgb @ bradford).T, 0, 1)
    srgb = np.where(lin <= 0.0031308, 12.92 * lin, 1.055 * lin ** (1 / 2.4) - 0.055) * 255
    return np.dstack([srgb, np.full(L.shape, 255.0)])


def pil_only(data):
    result = pil_decode(data)
    if result is None:
        raise ValueError("PIL refuses the rewritten file")
    return result


def bmp_oracle(d):
    """A plain reading of a BMP for the files PIL 9.4 refuses or misreads: palettes (indexes past
    the palette are black), RLE4/RLE8 with deltas (skipped pixels take palette entry 0), 16/24/32
    bits with or without bit fields (alpha only where a mask gives it); OS/2 and Windows headers."""
    off, hs = struct.unpack_from("<I", d, 10)[0], struct.unpack_from("<I", d, 14)[0]
    entry = 4
    if hs == 12:   # OS/2 1.x: 16-bit sizes, 3-byte palette entries
        (w, h, _, bpp), comp, used, entry = struct.unpack_from("<HHHH", d, 18), 0, 0, 3
    elif hs < 40:  # OS/2 2.x cut short: the fields it leaves out are 0
        (w, h, _, bpp), comp, used = struct.unpack_from("<iiHH", d, 18), 0, 0
    else:
        w, h, _, bpp, comp, _, _, _, used = struct.unpack_from("<iiHHIIiiI", d, 18)
    top_down, h = h < 0, abs(h)
    masks = None
    if comp in (3, 6):
        # Masks follow a 40-byte header or sit inside a longer one, at the same offset.
        masks = list(struct.unpack_from("<4I" if comp == 6 or hs >= 56 else "<3I", d, 54)) + [0]
    elif bpp == 16:
        masks = [0x7C00, 0x3E0, 0x1F, 0]
    elif bpp == 32:
        masks = [0xFF0000, 0xFF00, 0xFF, 0]
    pal_at = 14 + hs + (12 if comp == 3 and hs == 40 else 16 if comp == 6 and hs == 40 else 0)
    count = used or (1 << bpp if bpp <= 8 else 0)
    palette = [(d[pal_at + entry * i + 2], d[pal_at + entry * i + 1], d[pal_at + entry * i])
               for i in range(min(count, 256, max(0, (off - pal_at) // entry)))]
    black = (0, 0, 0)
    out = np.zeros((h, w, 4))
    out[:, :, 3] = 255

    def put(x, y, index):
        if 0 <= x < w and 0 <= y < h:
            out[y, x, :3] = palette[index] if index < len(palette) else black

    if comp in (1, 2):
        for y in range(h):
            for x in range(w):
                put(x, y, 0)
        x = y = 0
        i = off
        while i + 1 < len(d):
            n, v = d[i], d[i + 1]
            i += 2
            if n:
                for k in range(n):
                    put(x + k, y, v if comp == 1 else (v >> 4 if k % 2 == 0 else v & 15))
                x += n
            elif v == 0:
                x, y = 0, y + 1
            elif v == 1:
                break
            elif v == 2:
                x, y = x + d[i], y + d[i + 1]
                i += 2
            else:
                for k in range(v):
                    put(x + k, y, d[i + k] if comp == 1 else (d[i + k // 2] >> 4 if k % 2 == 0 else d[i + k // 2] & 15))
                x += v
                used_bytes = v if comp == 1 else (v + 1) // 2
                i += used_bytes + (used_bytes & 1)
    else:
        stride = (w * bpp + 31) // 32 * 4
        for y in range(h):
            row = d[off + y * stride: off + (y + 1) * stride]
            for x in range(w):
                if bpp <= 8:
                    byte = row[x * bpp // 8]
                    put(x, y, (byte >> (8 - bpp - (x * bpp) % 8)) & ((1 << bpp) - 1))
                elif bpp == 24:
                    out[y, x, :3] = (row[3 * x + 2], row[3 * x + 1], row[3 * x])
                else:
                    v = int.from_bytes(row[x * bpp // 8:(x + 1) * bpp // 8], "little")
                    for c, m in enumerate(masks):
                        if m:
                            shift = (m & -m).bit_length() - 1
                            out[y, x, c] = round(((v & m) >> shift) * 255 / (m >> shift))
    return out if top_down else out[::-1]


def pil_decode(data):
    """(rgba, tolerance) of the first frame of a file's bytes, or None when PIL refuses them."""
    try:
        with Image.open(io.BytesIO(data)) as im:
            im.load()
            lossy = im.format in ("JPEG", "JPEG2000", "MPO") or (
                im.format == "TIFF" and im.info.get("compression") in ("jpeg", "tiff_jpeg"))
            tolerance = LOSSY_TOLERANCE if lossy or im.mode == "LAB" else LOSSLESS_TOLERANCE
            png_gray_bits, tiff_bits = 8, 16
            # PIL turns a TIFF upright by its Orientation tag as it loads, but leaves a JPEG's
            # Exif orientation to the caller.
            if im.format in ("JPEG", "MPO"):
                im = ImageOps.exif_transpose(im)
            elif im.format == "TIFF":
                bits = im.tag_v2.get(258, (16,))
                tiff_bits = bits[0] if isinstance(bits, tuple) else bits
            elif im.format == "PNG" and data[25] == 0:
                png_gray_bits = data[24]
            return to_rgba(im, png_gray_bits, tiff_bits), tolerance
    except Exception:  # anything PIL cannot read is a refusal to the oracle
        return None


def png_without(data, chunks):
    """The PNG with the named chunks left out."""
    out, i = bytearray(data[:8]), 8
    while i + 8 <= len(data):
        n = int.from_bytes(data[i:i + 4], "big")
        if data[i + 4:i + 8].decode("latin-1") not in chunks:
            out += data[i:i + 12 + n]
        i += 12 + n
    return bytes(out)


def png_whole_chunks(data):
    """The PNG up to its last whole chunk, closed with an IEND."""
    end, i = 8, 8
    while i + 12 <= len(data):
        n = int.from_bytes(data[i:i + 4], "big")
        if i + 12 + n > len(data):
            break
        i = end = i + 12 + n
    return data[:end] + bytes.fromhex("0000000049454e44ae426082")


def jpeg_without_app1(data):
    """The JPEG with its APP1 (Exif, XMP) segments left out."""
    out, i = bytearray(data[:2]), 2
    while i + 4 <= len(data) and data[i] == 0xFF and data[i + 1] != 0xDA:
        n = int.from_bytes(data[i + 2:i + 4], "big")
        if data[i + 1] != 0xE1:
            out += data[i:i + 2 + n]
        i += 2 + n
    return bytes(out + data[i:])


def packbits(data):
    out, i = bytearray(), 0
    while i < len(data):
        n = data[i]
        if n < 128:
            out += data[i + 1:i + 2 + n]
            i += 2 + n
        elif n > 128:
            out += data[i + 1:i + 2] * (257 - n)
            i += 2
        else:
            i += 1
    return bytes(out)


def tiff_raw_gray8(data):
    """An 8-bit gray TIFF (uncompressed, PackBits or Deflate; one plane or separate planes) read
    by hand: the first sample as stored whatever SampleFormat says, an extra sample marked as
    alpha (associated alpha divided out) as alpha, any other extra sample ignored."""
    fp = io.BytesIO(data)
    ifd = TiffImagePlugin.ImageFileDirectory_v2(data[:8])
    fp.seek(ifd.next)
    ifd.load(fp)
    w, h, spp = ifd[256], ifd[257], ifd.get(277, 1)
    bits = ifd[258] if isinstance(ifd[258], tuple) else (ifd[258],)
    assert set(bits) == {8} and ifd.get(262) == 1 and ifd.get(317, 1) == 1
    inflate = {1: bytes, 32773: packbits, 8: zlib.decompress, 32946: zlib.decompress}[ifd.get(259, 1)]
    extra = ifd.get(338, ())
    extra = extra if isinstance(extra, tuple) else (extra,)
    alpha = spp > 1 and extra and extra[0] in (1, 2)
    strips = list(zip(ifd[273], ifd[279]))
    if ifd.get(284, 1) == 2:
        # Separate planes: only the gray plane, and the alpha plane when there is one, are read.
        per_plane = len(strips) // spp
        planes = [np.frombuffer(b"".join(inflate(data[o:o + n]) for o, n in strips[p * per_plane:(p + 1) * per_plane]),
                                dtype=np.uint8)[:w * h].reshape(h, w) for p in range(2 if alpha else 1)]
    else:
        raw = b"".join(inflate(data[o:o + n]) for o, n in strips)
        planes = np.frombuffer(raw[:w * h * spp], dtype=np.uint8).reshape(h, w, spp).transpose(2, 0, 1)
    g = planes[0].astype(np.float64)
    a = np.full_like(g, 255)
    if alpha:
        a = planes[1].astype(np.float64)
        if extra[0] == 1:
            g = np.where(a > 0, np.minimum(255, g * 255 / np.maximum(a, 1)), 0)
    return np.dstack([g, g, g, a])


def corpus_files(testdata):
    for root in ROOTS:
        base = os.path.join(testdata, root)
        for folder, _, names in os.walk(base):
            for name in names:
                if name.lower().endswith(EXTENSIONS):
                    yield os.path.relpath(os.path.join(folder, name), testdata)


P = "imagecorpus/files/pillow/"
BMP_BY_HAND = "a plain reading of the BMP (bmp_oracle), which matches the bmpsuite references"

# path -> (expectation, reason). Expectation: "refused"; "WxH" (decodes to that size, pixels
# checked only by a twin below, if any); or a function from the file's bytes to the picture
# (HxWx4 samples), used instead of PIL.
EXCEPTIONS = {
    # Damage the rule refuses and PIL 9.4 reads past.
    P + "bmp/b/badrle.bmp": (
        "refused", "RLE8 data with codes past the end of a row: damage; PIL clips it"),
    P + "hopper_bad_exif.jpg": (
        "refused", "entropy data with bad Huffman codes and short restart segments: libjpeg reports lost pixels, "
                   "PIL shows the wreck"),
    P + "issue_2811.gif": (
        "refused", "LZW minimum code size 11, above the GIF maximum of 8: giflib reports an error, "
                   "PIL reads on"),
    "pngsuite/xcsn0g01.png": (
        "refused", "wrong IDAT checksum: libpng reports it, PIL does not check IDAT checksums"),
    # A sample format without a display scale.
    P + "16_bit_binary_pgm.tiff": (
        "refused", "32-bit signed integer gray: no display scale, libtiff's RGBA reader refuses it; "
                   "PIL reads raw integers"),
    # PIL 9.4 refuses or misreads BMP layouts that the bmpsuite references show.
    P + "bmp/g/pal4rle.bmp": (bmp_oracle, "PIL 9.4 misplaces RLE4 runs; " + BMP_BY_HAND),
    P + "bmp/q/pal4rletrns.bmp": (
        bmp_oracle, "PIL 9.4 misplaces RLE4 runs and deltas; " + BMP_BY_HAND + ", skipped pixels in palette colour 0"),
    P + "bmp/q/pal8rletrns.bmp": (
        bmp_oracle, "PIL 9.4 misplaces RLE8 deltas; " + BMP_BY_HAND + ", skipped pixels in palette colour 0"),
    P + "bmp/g/rgb32bf.bmp": (bmp_oracle, "PIL 9.4 refuses these 32-bit bit fields; " + BMP_BY_HAND),
    P + "bmp/q/rgb32-111110.bmp": (bmp_oracle, "PIL 9.4 refuses 11-11-10 bit fields; " + BMP_BY_HAND),
    P + "bmp/q/rgb16-231.bmp": (
        bmp_oracle, "PIL 9.4 refuses 2-3-1 bit fields; " + BMP_BY_HAND + ", fields scaled to 0..255"),
    P + "bmp/q/rgba16-4444.bmp": (bmp_oracle, "PIL 9.4 refuses 4-4-4-4 bit fields with alpha; " + BMP_BY_HAND),
    P + "bmp/q/rgba32.bmp": (bmp_oracle, "PIL 9.4 refuses bit fields with an alpha mask; " + BMP_BY_HAND),
    P + "bmp/q/rgba32abf.bmp": (bmp_oracle, "PIL 9.4 refuses BI_ALPHABITFIELDS; " + BMP_BY_HAND),
    P + "bmp/q/rgb32h52.bmp": (bmp_oracle, "PIL 9.4 refuses the 52-byte info header; " + BMP_BY_HAND),
    P + "bmp/q/rgba32h56.bmp": (bmp_oracle, "PIL 9.4 refuses the 56-byte info header; " + BMP_BY_HAND),
    P + "bmp/q/pal8os2v2-16.bmp": (bmp_oracle, "PIL refuses the 16-byte OS/2 2.x header; " + BMP_BY_HAND),
    P + "bmp/q/pal8oversizepal.bmp": (
        bmp_oracle, "PIL refuses a 300-entry palette; entries past 256 are never indexed"),
    P + "bmp/b/pal8badindex.bmp": (
        bmp_oracle, "indexes past the 101-entry palette read black in a bitmap; "
                    "PIL pads the palette with colours of its own"),
    # PNG and JPEG files whose pictures are whole behind an ancillary fault that stops PIL.
    P + "apng/chunk_no_fctl.png": (
        lambda d: pil_only(png_without(d, ("acTL", "fcTL", "fdAT"))),
        "broken animation chunks, which a PNG reader skips to show the default image; "
        "PIL refuses the file"),
    P + "unknown_compression_method.png": (
        lambda d: pil_only(png_without(d, ("iCCP",))),
        "iCCP with an unknown compression method: libpng warns and drops it; PIL refuses the file"),
    P + "png_decompression_dos.png": (
        lambda d: pil_only(png_without(d, ("zTXt",))),
        "zTXt chunks that inflate past the chunk limits: libpng warns and drops them, PIL refuses the file"),
    P + "truncated_end_chunk.png": (
        lambda d: pil_only(png_whole_chunks(d)),
        "cut inside a chunk after the last image row: the picture is whole; PIL refuses the file"),
    P + "truncated_exif_dpi.jpg": (
        lambda d: pil_only(jpeg_without_app1(d)),
        "an Exif block cut short, ignored with its orientation; PIL refuses the file"),
    # TIFF layouts libtiff reads and PIL 9.4 does not.
    P + "8bit.s.tif": (
        tiff_raw_gray8, "signed 8-bit gray, which PIL 9.4 does not read; read by hand as the stored bytes, "
                        "as later PIL does"),
    "imagecorpus/files/libtiff/minisblack-2c-8b-alpha.tiff": (
        tiff_raw_gray8, "gray and associated alpha in separate planes, which PIL does not read; read by hand"),
    P + "separate_planar_extra_samples.tiff": (
        tiff_raw_gray8, "gray and an unspecified extra sample in separate planes, which PIL does not read; "
                        "read by hand"),
    "imagecorpus/files/libtiff/logluv-3c-16b.tiff": (
        "1x1", "SGILog colour, which libtiff converts and PIL does not read"),
    P + "invalid_header_length.jp2": (
        "640x480", "a reader-requirements box of a wrong length, which OpenJPEG skips and PIL refuses; "
                   "the picture is test-card.png"),
}

# Pictures the corpus ships as the reference of another file: (file, reference, tolerance per
# sample). Every pixel is compared, colour premultiplied by alpha; the writer checks each pair
# against the oracle first. Tolerance 1 where 16-bit samples or CMYK are rounded to 8 bits, 2
# where associated alpha is divided out again.
BMPSUITE = [("g/pal1", "pal1"), ("g/pal1wb", "pal1"), ("g/pal1bg", "pal1bg"), ("g/pal4", "pal4"),
            ("g/pal4rle", "pal4"), ("g/pal8", "pal8"), ("g/pal8-0", "pal8"), ("g/pal8os2", "pal8"),
            ("g/pal8rle", "pal8"), ("g/pal8topdown", "pal8"), ("g/pal8v4", "pal8"), ("g/pal8v5", "pal8"),
            ("g/pal8nonsquare", "pal8nonsquare-e"), ("g/pal8w124", "pal8w124"), ("g/pal8w125", "pal8w125"),
            ("g/pal8w126", "pal8w126"), ("g/rgb16", "rgb16"), ("g/rgb16-565", "rgb16-565"),
            ("g/rgb16-565pal", "rgb16-565"), ("g/rgb24", "rgb24"), ("g/rgb24pal", "rgb24"),
            ("g/rgb32", "rgb24"), ("g/rgb32bf", "rgb24"), ("q/pal8offs", "pal8"), ("q/pal8os2sp", "pal8"),
            ("q/pal8os2v2", "pal8"), ("q/pal8os2v2-16", "pal8"), ("q/pal8oversizepal", "pal8"),
            ("q/rgb24largepal", "rgb24"), ("q/rgb24lprof", "rgb24"), ("q/rgb24prof", "rgb24"),
            ("q/rgb32-111110", "rgb24"), ("q/rgb32bf-xbgr", "rgb24"), ("q/rgb32fakealpha", "rgb24"),
            ("q/rgb32h52", "rgb24"), ("b/badbitssize", "pal1"), ("b/baddens1", "pal1"), ("b/baddens2", "pal1"),
            ("b/badfilesize", "pal1"), ("b/badplanes", "pal1"), ("b/rletopdown", "pal8")]
TWINS = [(P + "bmp/" + f + ".bmp", P + "bmp/html/" + r + ".png", 1) for f, r in BMPSUITE] + [
    (P + "bmp/q/pal8rletrns.bmp", P + "pal8rletrns.png", 0),
    (P + "copyleft.tiff", P + "copyleft.png", 0),
    (P + "g4-fillorder-test.tif", P + "g4-fillorder-test.png", 0),
    (P + "hopper_g4_500.tif", P + "hopper_bw_500.png", 0),
    (P + "hopper.bmp", P + "hopper.png", 0),
    (P + "hopper.tif", P + "hopper.png", 0),
    (P + "hopper_lzw.tif", P + "hopper.png", 0),
    (P + "hopper_lzma.tif", P + "hopper.png", 0),
    (P + "hopper_bigtiff.tif", P + "hopper.png", 0),
    (P + "hopper.iccprofile.tif", P + "hopper.png", 0),
    (P + "hopper.jpg", P + "hopper.png", 4),
    (P + "hopper_webp.tif", P + "hopper_webp.png", 0),
    (P + "old-style-jpeg-compression.tif", P + "old-style-jpeg-compression.png", 0),
    (P + "pil136.tiff", P + "pil136.png", 1),
    (P + "pil168.tif", P + "pil168.png", 0),
    (P + "tiff_strip_raw.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_tiled_raw.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_strip_planar_raw.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_tiled_planar_raw.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_strip_planar_lzw.tiff", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_tiled_planar_lzw.tiff", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_strip_planar_raw_with_overviews.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_adobe_deflate.tif", P + "tiff_adobe_deflate.png", 0),
    (P + "tiff_16bit_RGB.tiff", P + "tiff_16bit_RGB_target.png", 0),
    (P + "tiff_strip_planar_16bit_RGB.tiff", P + "tiff_16bit_RGB_target.png", 1),
    (P + "tiff_tiled_planar_16bit_RGB.tiff", P + "tiff_16bit_RGB_target.png", 1),
    (P + "tiff_16bit_RGBa.tiff", P + "tiff_16bit_RGBa_target.png", 2),
    (P + "tiff_strip_planar_16bit_RGBa.tiff", P + "tiff_16bit_RGBa_target.png", 2),
    (P + "tiff_tiled_planar_16bit_RGBa.tiff", P + "tiff_16bit_RGBa_target.png", 2),
    (P + "tiff_tiled_cmyk_jpeg.tif", P + "tiff_strip_cmyk_jpeg.tif", 1),
    (P + "tiff_strip_cmyk_16l_jpeg.tif", P + "tiff_strip_cmyk_jpeg.tif", 1),
    (P + "tiff_tiled_ycbcr_jpeg_1x1_sampling.tif", P + "tiff_strip_ycbcr_jpeg_1x1_sampling.tif", 0),
    (P + "16bit.cropped.jp2", P + "16bit.cropped.tif", 0),
    (P + "16bit.cropped.j2k", P + "16bit.cropped.tif", 0),
    (P + "rgb_trns_ycbc.j2k", P + "rgb_trns_ycbc.jp2", 0),
    (P + "test-card-lossless.jp2", P + "test-card.png", 1),
    (P + "invalid_header_length.jp2", P + "test-card.png", 8),
    ("imagecorpus/files/libtiff/palette-1c-8b.tiff", "imagecorpus/files/libtiff/palette-1c-8b.bmp", 1),
    ("imagecorpus/files/libtiff/palette-1c-8b.gif", "imagecorpus/files/libtiff/palette-1c-8b.bmp", 0),
    ("imagecorpus/files/libtiff/rgb-3c-8b.tiff", "imagecorpus/files/libtiff/rgb-3c-8b.bmp", 0),
] + [("pngsuite/bmp/" + n + ".bmp", "pngsuite/" + n + ".png", 0)
     for n in ("basi4a08", "basn2c08", "basn6a08", "cdfn2c08", "pp0n6a08", "s01n3p01", "s03n3p01", "s35n3p04",
               "s37i3p04", "tbrn2c08", "tm3n3p02")]


def read(testdata, rel):
    with open(os.path.join(testdata, rel), "rb") as f:
        return f.read()


def expectation(testdata, rel):
    """(picture, tolerance, reason): the picture is "refused", "WxH" or the samples; the reason is
    set for an exception."""
    data = read(testdata, rel)
    if rel in EXCEPTIONS:
        expect, reason = EXCEPTIONS[rel]
        if callable(expect):
            picture = expect(data)
            return picture + (reason,) if isinstance(picture, tuple) else (picture, LOSSLESS_TOLERANCE, reason)
        return expect, None, reason
    result = pil_decode(data) if data.startswith(SIGNATURES) else None
    return (result or ("refused", None)) + (None,)


def describe(picture, tolerance):
    if isinstance(picture, str):
        return picture + (" - -" if picture != "refused" else "")
    h, w = picture.shape[:2]
    return f"{w}x{h} {tolerance} {signature(picture)}"


def check_twin(a, b, tolerance):
    """Whether the oracle agrees that b is the picture of a (one level of slack for its own
    rounding of deep samples)."""
    refused = [isinstance(x, str) and x == "refused" for x in (a, b)]
    if any(refused):
        return False
    if isinstance(a, str) or isinstance(b, str):
        return True   # a size-only exception: the twin is its only pixel check
    if a.shape != b.shape:
        return False
    return np.abs(premultiplied(a) - premultiplied(b)).max() <= tolerance + 1


def premultiplied(rgba):
    a = np.round(rgba[:, :, 3:4])
    return np.round(np.concatenate([np.round(rgba[:, :, :3]) * a / 255, a], axis=2))


def main():
    testdata = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "../../../../shared/testdata")
    files, expected = sorted(corpus_files(testdata)), {}
    missing = [p for p in list(EXCEPTIONS) + [p for t in TWINS for p in t[:2]] if p not in files]
    if missing:
        raise SystemExit("not in the corpus: " + ", ".join(missing))
    lines, exceptions = [], []
    for rel in files:
        picture, tolerance, reason = expected[rel] = expectation(testdata, rel)
        if reason:
            exceptions.append(f"except {rel} {describe(picture, tolerance)} {reason}")
            result = pil_decode(read(testdata, rel))
            picture, tolerance = result or ("refused", None)
        lines.append(f"file {rel} {describe(picture, tolerance)}")
    wrong = [f"{a} {b}" for a, b, t in TWINS if not check_twin(expected[a][0], expected[b][0], t)]
    if wrong:
        raise SystemExit("the oracle disagrees with these twins: " + ", ".join(wrong))
    with open(os.path.join(HERE, "corpus_manifest.txt"), "w") as out:
        out.write(f"""# What each corpus file decodes to; make_corpus_manifest.py with PIL {Image.__version__} wrote it.
# file <path> refused | file <path> <W>x<H> <tolerance> <signature>: PIL's reading of the first frame.
# except <path> refused <reason> | except <path> <W>x<H> <tolerance|-> <signature|-> <reason>:
#   where the decoders' rule and PIL differ, this replaces the file line.
# twin <file> <reference> <tolerance>: the corpus's own reference picture of a file.
""")
        for line in lines + exceptions + [f"twin {a} {b} {t}" for a, b, t in TWINS]:
            out.write(line + "\n")


if __name__ == "__main__":
    main()
