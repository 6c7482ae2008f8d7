#ifndef TARNLIB_H
#define TARNLIB_H
/*
 * tarnlib: the open camera library.
 *
 * Cameras are opened as a list of tl_camera_t records. A raw sensor file can
 * be opened as a file-backed camera with tl_OpenCameras2: every grab delivers
 * the file's frame as 16-bit little-endian words.
 *
 * Sensor data files ("*.sdat", and "*.xsdat" for extended files) are INI text
 * files in the sensor data folder (tl_SensorData()). Each describes one
 * sensor revision:
 *
 *   [Sensor]
 *   Name=KSD644            sensor name (file names start with it)
 *   AlternateName=KSD644C  second name, also used in file names
 *   PartId=0x6440          part id (decimal or 0x hexadecimal)
 *   Revision=1
 *   [Frame]
 *   Width=644
 *   Height=484
 *   BitsPerPixel=10        1..16; samples take 1 byte up to 8 bits, else 2
 *   ImageType=1            image type code (tl_IsBayerImageType)
 *   BayerOrder=0           colour order code 0..3 (other codes up to 255 are
 *                          kept and demosaiced as 0)
 *   BlackLevel=64
 *
 * All functions return 0 (TL_OK) on success and a TL_ERR_* status otherwise.
 */

#ifdef __cplusplus
extern "C" {
#endif

enum {
    TL_OK = 0,
    TL_ERR_ARGUMENT = 1,        /* null pointer or absurd argument */
    TL_ERR_NO_CAMERA = 2,       /* no camera found */
    TL_ERR_NO_FILE = 3,         /* file missing or unreadable */
    TL_ERR_NO_DESCRIPTION = 4,  /* no sidecar and no sensor with the file's size */
    TL_ERR_BAD_DESCRIPTION = 5, /* sidecar or sensor data file with invalid values */
    TL_ERR_SIZE_MISMATCH = 6,   /* file size differs from the described frame */
    TL_ERR_BUFFER = 7,          /* buffer too small */
    TL_ERR_IO = 8,              /* read failed, or the file changed since it was opened */
    TL_ERR_NO_MEMORY = 9,
    TL_ERR_PARAMETER = 10,     /* unknown parameter code */
    TL_ERR_NOT_STREAMING = 11, /* grab before tl_startTransport */
    TL_ERR_NO_PRESET = 12,     /* no such preset in the INI file */
    TL_ERR_NO_REGISTER = 13,   /* the sensor has no such register */
    TL_ERR_RANGE = 14,         /* value does not fit the register */
    TL_ERR_SYNTAX = 15         /* malformed line in an INI preset */
};

/* Parameter codes of tl_getSensorParameter. */
enum { TL_PARAM_BLACK_LEVEL = 1, TL_PARAM_BAYER_ORDER = 2 };

/* Image type codes. */
enum {
    TL_IMAGE_MONO = 0,
    TL_IMAGE_BAYER = 1,
    TL_IMAGE_YCBCR = 2,
    TL_IMAGE_RGB = 3,
    TL_IMAGE_MONO_PACKED = 4,
    TL_IMAGE_BAYER_PLANAR = 5,
    TL_IMAGE_YCBCR_PLANAR = 6,
    TL_IMAGE_BAYER_HDR = 7,
    TL_IMAGE_BAYER_PDAF = 8,
    TL_IMAGE_RGBIR = 9,
    TL_IMAGE_BAYER_DUAL = 10,
    TL_IMAGE_RGB_PLANAR = 11
};

#define TL_NAME_SIZE 64

/* Description of the sensor behind a camera (or in a sensor data file). */
typedef struct tl_sensor_t
{
    char name[TL_NAME_SIZE];          /* sensor name */
    char alternateName[TL_NAME_SIZE]; /* second identification text */
    unsigned int partId;
    int revision;
    int imageType;
    int width;
    int height;
    int bitsPerPixel;
    int bytesPerPixel;       /* of the grabbed frame (2 for raw files) */
    unsigned int bufferSize; /* bytes of one grabbed frame */
    int bayerOrder;
    unsigned int blackLevel;
} tl_sensor_t;

typedef struct tl_camera_t
{
    tl_sensor_t sensor;
    void *priv; /* library-private state */
} tl_camera_t;

/* Folder of the sensor data files: $KESTRO_SENSOR_DATA when set, else the
 * folder shipped with the program (searched relative to the executable).
 * The text stays valid until the next call on the same thread. */
const char *tl_SensorData(void);

/* Opens the attached cameras. There is no camera transport in this build:
 * the only cameras are simulated demo boards, plugged in with the
 * environment variable KESTRO_DEMO_CAMERA. Every sensor data file of
 * sensorDataFolder (the library's folder when null or empty) is a board,
 * named by the file's base name ("KSD644-REV2-DEV3"), and also found by its
 * sensor's Name or AlternateName (the first such file in name order).
 * KESTRO_DEMO_CAMERA=1 (or "yes", "on", "true") plugs in the first board in
 * name order; any other value the board it names, and when it names none
 * there is no camera (a warning lists the boards). A board looks at a
 * 24-patch colour chart. Its identification fields stay empty until
 * tl_DetectPartNumber. Without a camera: TL_ERR_NO_CAMERA, empty list.
 *
 * A board's registers are those of the [Registers] group of its sensor data
 * file, one per line, "NAME=ADDRESS,BITS,DEFAULT" (numbers decimal or 0x
 * hexadecimal, BITS 1..32, DEFAULT below 2^BITS), e.g.
 *   ANALOG_GAIN=0x3060,8,16
 * A file without the group gets the standard demo map: MODE_SELECT 0x0100
 * (1 bit), ANALOG_GAIN 0x3060 (8 bits, 1/16 steps, 16 = 1x), DIGITAL_GAIN_GREEN,
 * _RED, _BLUE 0x3056, 0x3058, 0x305A (12 bits, 1/256 steps, 256 = 1x). A
 * file whose group is malformed is not a board.
 *
 * An optional [ColorCorrection] group names the colour-correction registers
 * for the colour-calibration library: Matrix= the nine matrix registers in
 * row order, MatrixFormat= their fixed-point format, Gains= the red, green
 * and blue gain registers, GainFormat= theirs. A format is U (unsigned), S
 * (two's complement) or SM (sign and magnitude) followed by integer and
 * fraction bits, e.g. S7.8. */
int tl_OpenCameras(tl_camera_t ***list, int *count, const char *sensorDataFolder);

/* Transport of a camera: grabs from the demo camera need it started. */
int tl_startTransport(tl_camera_t *camera);
void tl_stopTransport(tl_camera_t *camera);

/* Identifies the sensor: fills name, alternateName, partId and revision. */
int tl_DetectPartNumber(tl_camera_t *camera);

/* Writes the path of the sensor's default INI file into buffer (in the
 * local 8-bit file name encoding). The file is the user's own, in
 * $XDG_DATA_HOME/Kestro/ini (~/.local/share/Kestro/ini), named after the
 * sensor data file ("KSD644-REV1.ini"); on first use it is created from the
 * preset groups of the sensor data file (every group but [Sensor], [Frame],
 * [Registers] and [ColorCorrection]). TL_ERR_IO when it cannot be created, TL_ERR_BUFFER
 * when the path does not fit (the buffer then holds an empty text). */
int tl_DefaultIniFile(tl_camera_t *camera, char *buffer, int bufferSize);

/* Loads the preset group [presetName] of an INI file into the sensor's
 * registers: one write per line, "REGISTER=VALUE", the register by its name
 * or its address, numbers decimal or 0x hexadecimal; blank lines and whole-
 * line comments (';' or '#') are skipped. Every line is checked before any
 * register is written, so a preset that fails changes nothing:
 * TL_ERR_SYNTAX for a malformed line, TL_ERR_NO_REGISTER for an unknown
 * register, TL_ERR_RANGE for a value that does not fit; TL_ERR_NO_FILE when
 * the file cannot be read (or is not a regular file of at most 1 MiB),
 * TL_ERR_NO_PRESET when it has no such group. */
int tl_LoadINIPreset(tl_camera_t *camera, const char *iniFile, const char *presetName);

/* Sensor registers (32-bit addresses; values up to the register's width).
 * TL_ERR_NO_REGISTER for an address the sensor does not have, TL_ERR_RANGE
 * for a value wider than the register. */
int tl_ReadRegister(tl_camera_t *camera, unsigned int address, unsigned int *value);
int tl_WriteRegister(tl_camera_t *camera, unsigned int address, unsigned int value);

/* The register descriptions of a camera's sensor, in sensor data file order:
 * how many there are, and one by index (name into a buffer of nameSize
 * bytes, TL_ERR_BUFFER when it does not fit). */
int tl_RegisterCount(tl_camera_t *camera, int *count);
int tl_RegisterInfo(tl_camera_t *camera, int index, char *name, int nameSize, unsigned int *address,
                    int *bits);

/* Opens a raw sensor file (path in the local 8-bit file name encoding) as a
 * file-backed camera. maxCameras limits the list (at least 1 is needed);
 * flags must be 0. The frame description comes from the sidecar INI file
 * (same path with ".ini" instead of ".raw", group [Frame]) or else from the
 * first sensor data file whose frame size in bytes equals the file size. */
int tl_OpenCameras2(tl_camera_t ***list, int *count, const char *source, int maxCameras,
                    unsigned int flags);

/* Frees a list returned by tl_OpenCameras or tl_OpenCameras2. */
void tl_CloseCameras2(tl_camera_t **list, int count);

/* Reads one frame into buffer (bufferSize bytes; at least
 * camera->sensor.bufferSize). Samples are 16-bit little-endian words; 8-bit
 * files are widened. Never writes more than bufferSize bytes. */
int tl_grabFrame(tl_camera_t *camera, void *buffer, unsigned int bufferSize);

/* Sensor parameter query: TL_PARAM_BLACK_LEVEL, TL_PARAM_BAYER_ORDER. */
int tl_getSensorParameter(tl_camera_t *camera, int code, unsigned int *value);

/* True (1) for the Bayer mosaic image types 1, 7, 8 and 10. */
int tl_IsBayerImageType(int imageType);

/* Reads a sensor data file into *sensor (bufferSize and bytesPerPixel as a
 * raw file of that sensor would be grabbed). */
int tl_ReadSensorDataFile(const char *path, tl_sensor_t *sensor);

/* Short English text for a status code. */
const char *tl_StatusText(int status);

/* Why the last failed call on this thread failed, in more words than its
 * status code: the value and file that were refused ("BitsPerPixel=20 in
 * /data/a.ini: ..."), in the local 8-bit encoding; empty when the call gave
 * no detail. Each thread has its own text, which stays valid until the next
 * library call on the same thread. */
const char *tl_LastErrorText(void);

#ifdef __cplusplus
}
#endif

#endif /* TARNLIB_H */
