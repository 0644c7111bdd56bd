#ifndef MRLBASE_ENUMS_H_
#define MRLBASE_ENUMS_H_

// The foundation's enumerations. Each has the fixed type int, so any number a caller passes
// (-1, 8, 30) is a valid value and the code that takes it decides what an unknown one means.

// Pixel layouts of a CCA_Dib. 1 bpp and 8 bpp carry a palette; 8bppMask is a bare alpha plane.
enum CA_DibFormat : int {
  CA_DIB_Invalid = 0,
  CA_DIB_1bpp = 1,
  CA_DIB_8bppMask = 2,
  CA_DIB_8bpp = 3,
  CA_DIB_Rgb = 4,
  CA_DIB_Rgb32 = 5,
  CA_DIB_Argb = 6
};

// Image file formats, as codec factories and format names number them.
enum CA_ImageFormat : int {
  CA_IMAGE_None = 0,
  CA_IMAGE_Bmp = 1,
  CA_IMAGE_Gif = 2,
  CA_IMAGE_Jpeg = 3,
  CA_IMAGE_Jpeg2000 = 4,
  CA_IMAGE_Jb2 = 5,
  CA_IMAGE_Png = 6,
  CA_IMAGE_Tif = 7
};

// Colour spaces of a colour word: 1 gray, 2 RGB, 3 four components.
enum CA_ColorSpace : int { CA_COLORSPACE_Gray = 1, CA_COLORSPACE_Rgb = 2, CA_COLORSPACE_Argb = 3 };

// Blend modes of CCA_Dib::CompositeBitmap: 0..11 separable, 21..24 non-separable, 30 HSB.
enum CA_BlendMode : int {
  CA_BLEND_Normal = 0,
  CA_BLEND_Multiply,
  CA_BLEND_Screen,
  CA_BLEND_Overlay,
  CA_BLEND_Darken,
  CA_BLEND_Lighten,
  CA_BLEND_ColorDodge,
  CA_BLEND_ColorBurn,
  CA_BLEND_HardLight,
  CA_BLEND_SoftLight,
  CA_BLEND_Difference,
  CA_BLEND_Exclusion,
  CA_BLEND_Hue = 21,
  CA_BLEND_Saturation,
  CA_BLEND_Color,
  CA_BLEND_Luminosity,
  CA_BLEND_HSB = 30
};

// Kinds of point in a CCA_Path.
enum CA_PathPointType : int { CA_PATH_MoveTo = 1, CA_PATH_LineTo = 2, CA_PATH_BezierTo = 3 };

#endif  // MRLBASE_ENUMS_H_
