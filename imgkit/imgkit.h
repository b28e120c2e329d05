/* libimgkit: Vimora's picture codec library.
 * Reads, writes and describes picture files and owns the buffers of the
 * picture record. Plain C interface, usable from C and C++. */
#ifndef IMGKIT_IMGKIT_H
#define IMGKIT_IMGKIT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define IMK_API __attribute__((visibility("default")))

/* Picture kinds (ImageRecord.type). */
enum {
  IMK_BINARY = 1,    /* one byte per pixel, 0 black / 1 white */
  IMK_GREY = 2,      /* one byte per pixel, level 0..colorCount-1 */
  IMK_MAPPED = 4,    /* one byte per pixel, index into the palette */
  IMK_RGB = 256,     /* R,G,B */
  IMK_RGBX = 512,    /* R,G,B, spare (alpha when a file had one) */
  IMK_BGR = 1024,    /* B,G,R */
  IMK_XBGR = 2048,   /* spare,B,G,R */
  IMK_TRUECOLOR_MASK = 0x0F00,
  IMK_ANY_TRUECOLOR = 3840 /* kind code in FormatInfo.kinds */
};

/* Result codes of imkLoad / imkSave / imkFileInformation. */
enum {
  IMK_OK = 0,
  IMK_ERR_MEMORY = 1,
  IMK_ERR_UNKNOWN_FORMAT = 2,
  IMK_ERR_READ = 3,
  IMK_ERR_OPEN = 4,
  IMK_ERR_WRITE = 5,
  IMK_ERR_CANNOT_SAVE = 7,
  IMK_ERR_BAD_FILE = 8, /* detail in FileInfo.errorText */
  IMK_ERR_CORRUPT = 9,
  IMK_ERR_JPEG = 10,
  IMK_ERR_STOPPED = 15 /* the progress callback asked to stop */
};

/* LoadOptions.flags */
enum {
  IMK_FLAG_PROGRESS = 0x0001,
  IMK_FLAG_LOAD = 0x0004,
  IMK_FLAG_IGNORE_ERRORS = 0x0400, /* keep what was decoded of a damaged file */
  IMK_FLAG_REDUCE = 0x0800         /* fit fitWidth x fitHeight while reading */
};

/* FormatInfo.capabilities */
enum {
  IMK_CAN_READ = 0x01,
  IMK_CAN_WRITE = 0x02,
  IMK_MULTI_PICTURE = 0x04, /* may hold several pictures (pages, frames) */
  IMK_NO_SNIFF = 0x08       /* never recognised by content; chosen by index */
};

/* LoadOptions.rawChannelType: the pixel layout of a headerless raw file. */
enum {
  IMK_RAW_GREY = 0,
  IMK_RAW_RGB = 1,
  IMK_RAW_BGR = 2,
  IMK_RAW_RGBA = 3,
  IMK_RAW_ABGR = 4,
  IMK_RAW_CMY = 5,
  IMK_RAW_CMYK = 6
};

/* LoadOptions.rawChannelOrder: how the channels of a raw file are stored. */
enum {
  IMK_RAW_INTERLEAVED = 0, /* RGBRGB... */
  IMK_RAW_SEQUENTIAL = 1,  /* per row: RRR..GGG..BBB.. */
  IMK_RAW_PLANES = 2       /* whole planes: all R, then all G, then all B */
};

/* TIFF compression (LoadOptions.saveOption when saving TIFF). */
enum {
  IMK_TIFF_NONE = 0,
  IMK_TIFF_LZW = 1,
  IMK_TIFF_PACKBITS = 2,
  IMK_TIFF_DEFLATE = 3,
  IMK_TIFF_G4 = 4 /* binary pictures; others fall back to LZW */
};

typedef struct ImageRecord {
  int32_t width;
  int32_t height;
  int32_t bytesPerLine; /* stride; rows always advance by this */
  uint16_t type;
  int16_t bytesPerPixel;
  int16_t bitsPerComponent; /* passed back to imkAllock unchanged */
  uint16_t attribute;
  uint32_t reserved1;
  uint32_t reserved2;
  int32_t colorCount;
  unsigned char* palette; /* 768 bytes, planar: 256 R, 256 G, 256 B */
  unsigned char* pixels;  /* bytesPerLine * height bytes; NULL = no picture */
} ImageRecord;

/* progress(step, count): step 0 first, up to count. Non-zero stops the load. */
typedef int (*ImkProgressFunc)(int step, int count);

typedef struct LoadOptions {
  uint16_t reserved0;
  int16_t formatIndex;
  uint16_t reserved4;
  uint16_t flags;
  int32_t pictureIndex;
  int32_t rawWidth;
  int32_t rawHeight;
  int32_t rawOffset;
  uint16_t rawChannelOrder;
  uint16_t rawChannelType;
  union {
    uint16_t reserved28; /* loading: 0 */
    uint16_t saveQuality; /* saving: JPEG quality 1..100, PNG level 0..9 */
  };
  /* Saving: the two per-format words. saveOption is JPEG progressive, GIF
   * interlace, the compression switch of BMP and the TIFF compression. */
  uint16_t saveOption;
  uint16_t saveOption2;
  uint16_t pcdBase;
  uint16_t grobBpp;
  uint16_t reserved38;
  int32_t reserved40;
  int32_t fitWidth;
  int32_t fitHeight;
  int32_t progressData;
  ImkProgressFunc progress;
} LoadOptions;

typedef struct FileInfo {
  char formatName[512];
  int16_t formatIndex;
  uint16_t reserved0x202;
  int32_t width;
  int32_t height;
  int16_t planes;
  int16_t bitsPerPlane;
  uint32_t reserved0x210;
  uint32_t reserved0x214;
  int32_t pictureCount;
  char errorText[64];
} FileInfo;

/* One kind a format can hold: the list in FormatInfo ends at kind >= 65535. */
typedef struct ImkKind {
  uint32_t kind;      /* 1, 2, 4 or IMK_ANY_TRUECOLOR */
  uint32_t maxColors; /* 0xFFFFFFFE or more: any count */
  uint32_t width;     /* required size; 0xFFFFFFFF: any */
  uint32_t height;
} ImkKind;

#define IMK_MAX_EXTENSIONS 12
#define IMK_MAX_KINDS 10

typedef struct FormatInfo {
  char shortName[16]; /* what imkGetIndex finds */
  int16_t index;
  uint8_t capabilities;
  uint8_t reserved19;
  char name[256];
  char extensions[IMK_MAX_EXTENSIONS][16]; /* ended by an empty slot */
  ImkKind kinds[IMK_MAX_KINDS];            /* ended by kind >= 65535 */
  uint8_t reserved628[8];
} FormatInfo;

/* Writes the version text ("2.90") into buf (at least 16 bytes). */
IMK_API void imkVersion(char* buf);
/* Fills every field of the block with the library's defaults. */
IMK_API void imkDefaultOption(LoadOptions* options);
/* Reads a picture. On failure the record's buffers stay NULL. */
IMK_API int imkLoad(const char* path, ImageRecord* picture, LoadOptions* options, FileInfo* info);
/* Writes a picture through a temporary file renamed into place. */
IMK_API int16_t imkSave(const char* path, const ImageRecord* picture, const LoadOptions* options);
/* Reads only the headers of a file; formatIndex -1 recognises the format. */
IMK_API int imkFileInformation(const char* path, int16_t formatIndex, int32_t pictureIndex, FileInfo* info);
IMK_API int16_t imkCount(void);
IMK_API void imkGetInfo(int16_t index, FormatInfo* info);
/* Index of the format with this short name, or -1. */
IMK_API int16_t imkGetIndex(const char* shortName);
/* Allocates a picture; non-zero on success, 0 when memory is short or the
 * size is impossible (the record is then left unchanged). */
IMK_API int16_t imkAllock(ImageRecord* picture, uint16_t type, int16_t bitsPerComponent, int32_t width,
                  int32_t height);
/* Releases both buffers. The caller clears the record afterwards. */
IMK_API void imkFree(ImageRecord* picture);

#ifdef __cplusplus
}
#endif

#endif
