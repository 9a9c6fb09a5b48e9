"""Writes the inputs that the fuzz targets start from: one folder for each target.

usage: seeds.py FOLDER
"""
import pathlib
import struct
import sys
import zlib

LINES = """content: {content}
type: {type}
axes: [{axes}]
shape: [{shape}]
sampling_frequency: 20 MHz
"""
RAW = "file: samples.raw\n" + LINES
GEOMETRIES = [
    "geometry: {kind: linear, line_pitch: 0.3 mm, first_line: -1 mm, start_depth: 2 mm}\n",
    "geometry: {kind: steered, steering: -15 deg, line_pitch: 0.3 mm}\n",
    "geometry:\n  kind: sector\n  opening_angle: 80 deg\n  apex_radius: 0 mm\n",
    "geometry:\n  kind: curved\n  first_angle: -20 deg\n  angle_step: 5 deg\n  apex_radius: 60 mm\n",
]
RECIPE = {
    "Software": "echo2image 1.0.0", "Command": "bmode", "Input": "recording", "Recording": "a.yml", "Frame": "1",
    "Input SHA-256": "00", "Width": "40", "Scale": "yes", "Pixels SHA-256": "00",
}
ECHOES = {"Center frequency in Hz": "5e6", "Detector": "general", "Taps": "15", "Decimation": "2", "Bandwidth in Hz": "3e6",
          "Reference": "100", "Dynamic range in dB": "50", "Sound speed in m/s": "1500"}
HARMONIC = {"Pulse inversion": "blend", "Ramp start in samples": "8", "Ramp end in samples": "32", "Percent taken away": "50",
            "Upsampled": "fast", "Lines interpolated": "4", "Smoothed": "yes"}
MOTION = {"Second frame": "2", "Block width": "5", "Block height": "5", "Grid": "4", "Search range across": "2",
          "Search range down": "2", "Correlation threshold": "0.5"}
COLOUR = {"Reference": "100", "Dynamic range in dB": "50", "Center frequency in Hz": "5e6", "Shown": "velocity",
          "Firings": "8", "Clutter filter": "poly:2", "Clutter mixing": "yes", "Average lines": "3", "Average samples": "3",
          "Pulse repetition frequency in Hz": "5000", "Unit": "cm/s", "Colour map": "red-yellow", "Baseline": "0.25",
          "Least power in dB": "20", "Greatest power in dB": "60", "Greatest spread": "0.5", "Tissue phase in rad": "0.1",
          "Tissue grey": "96"}


def recipes():
    grey = {"Filters": "median3, persist 12, average 3"}
    for part in (grey, ECHOES, {**ECHOES, "Detector": "fixed-point"}, {**ECHOES, **HARMONIC}, {**ECHOES, **MOTION}, COLOUR,
                 {**COLOUR, "Shown": "power", "Unit": "rad", "Clutter filter": "iir:0.1"}):
        yield {**RECIPE, **part}


def descriptions():
    for i, (content, kind, axes, shape) in enumerate((
            ("rf", "int16", "frame, line, sample", "2, 5, 40"), ("rf", "int16", "firing, sample, line", "2, 40, 5"),
            ("iq", "int16", "line, sample, firing, component", "6, 16, 8, 2"), ("bmode", "uint8", "line, sample", "6, 32"))):
        yield RAW.format(content=content, type=kind, axes=axes, shape=shape) + GEOMETRIES[i] + {
            "rf": "center_frequency: 5 MHz\nbandwidth: 3e6\noffset: 12.5\nheader_bytes: 7\nvalid_samples: 30\ndead_lines: [0, 2..4]\n",
            "iq": "demodulation_frequency: 5 MHz\npulse_repetition_frequency: 5 kHz\nsound_speed: 1480 m/s\n",
            "bmode": "dynamic_range: 60 dB\nframe_rate: 25 Hz\ntitle: \"some text\"\n"}[content]
    yield ("file: samples.raw\ncontent: bmode\ntype: uint8\naxes: [frame, row, column]\nshape: [2, 20, 30]\n"
           "geometry: {kind: picture, column_spacing: 0.2 mm, row_spacing: 0.1 mm}\n")


def data_files():
    for version, text in ((1, "{'descr': '<i2', 'fortran_order': False, 'shape': (2, 4, 30), }"),
                          (1, "{'descr': '<i2', 'fortran_order': True, 'shape': (2, 30, 4), }"),
                          (2, "{\"descr\": \"|u1\", 'fortran_order': False, 'shape': (4L, 30)}\n")):
        yield b"\x93NUMPY" + bytes([version, 0]) + struct.pack("<H" if version == 1 else "<I", len(text)) + text.encode()
    header = "ObjectType = Image\nNDims = {dims}\nDimSize = {size}\nElementType = {type}\n{more}ElementDataFile = {data}\n"
    iq = "UltrasoundImageOrientation = FM\nUltrasoundImageType = {type}\nBinaryDataByteOrderMSB = False\n"
    for dims, size, kind, more, data in (
            (3, "30 4 2", "MET_SHORT", "HeaderSize = -1\n", "samples.raw"), (2, "60 4", "MET_SHORT", iq.format(type="RF_IQ_LINE"), "LOCAL"),
            (2, "30 8", "MET_SHORT", iq.format(type="RF_I_LINE_Q_LINE"), "LOCAL"),
            (3, "30 4 2", "MET_UCHAR", "UltrasoundImageOrientation = MF\nUltrasoundImageType = BRIGHTNESS\nElementSpacing = 0.2 0.1 1\n", "LOCAL"),
            (2, "30 4", "MET_SHORT", "ElementNumberOfChannels = 2\nCompressedData = False\nBinaryData = True\n", "LOCAL")):
        yield header.format(dims=dims, size=size, type=kind, more=more, data=data).encode()


def png(colour_type, bits, width, height, rows, text, more=b""):
    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
    packed = zlib.compress(b"".join(b"\1" + row for row in rows), 0)  # stored: every byte of a row stands in the file
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, bits, colour_type, 0, 0, 0)) + more +
            b"".join(chunk(b"tEXt", key.encode() + b"\0" + value.encode()) for key, value in text.items()) +
            chunk(b"zTXt", b"Comment\0\0" + zlib.compress(b"text")) + chunk(b"iTXt", b"Title\0\0\0\0\0\xc3\xa4") +
            chunk(b"IDAT", packed) + chunk(b"IEND", b""))


def pictures():
    for text in list(recipes())[:2]:
        yield png(2, 8, 3, 2, [bytes(range(9)), b"\xff\x20\0" * 3], text)
    yield png(0, 1, 9, 2, [b"\x80\x80", b"\0\0"], {})
    palette = struct.pack(">I", 6) + b"PLTE" + bytes(6)
    yield png(3, 8, 4, 1, [b"\0\1\1\0"], {}, palette + struct.pack(">I", zlib.crc32(palette[4:])))


def dicom(syntax, tags, pixels):
    def element(group, number, kind, value):
        value += b"" if len(value) % 2 == 0 else b" " if kind in "CS IS DS UI" else b"\0"
        long_form = kind in ("OB", "OW", "SQ")
        return struct.pack("<HH2s", group, number, kind.encode()) + (
            struct.pack("<HI", 0, len(value)) if long_form else struct.pack("<H", len(value))) + value
    meta = element(2, 0x10, "UI", syntax.encode() + b"\0" * (len(syntax) % 2))
    meta = element(2, 0, "UL", struct.pack("<I", len(meta))) + meta
    return bytes(128) + b"DICM" + meta + b"".join(element(*tag) for tag in tags) + pixels


def dicoms():
    u16 = lambda value: struct.pack("<H", value)
    for frames, rows, columns, channels, colours in ((2, 6, 8, 1, b"MONOCHROME2"), (1, 4, 4, 3, b"RGB"), (1, 4, 4, 3, b"YBR_FULL_422")):
        region = b"".join(struct.pack("<HH2sH", 0x18, number, kind, len(value)) + value for number, kind, value in (
            (0x601c, b"UL", struct.pack("<I", 7)), (0x601e, b"UL", struct.pack("<I", 5)), (0x6024, b"US", u16(3)),
            (0x6026, b"US", u16(3)), (0x602c, b"FD", struct.pack("<d", 0.02)), (0x602e, b"FD", struct.pack("<d", 0.03))))
        item = struct.pack("<HHI", 0xfffe, 0xe000, len(region)) + region
        tags = [(0x18, 0x1063, "DS", b"40"), (0x18, 0x6011, "SQ", item), (0x28, 2, "US", u16(channels)), (0x28, 4, "CS", colours)]
        tags += [(0x28, 6, "US", u16(0))] if channels == 3 else []
        tags += [(0x28, 8, "IS", b"%d" % frames), (0x28, 0x10, "US", u16(rows)), (0x28, 0x11, "US", u16(columns)),
                 (0x28, 0x100, "US", u16(8)), (0x28, 0x101, "US", u16(8)), (0x28, 0x102, "US", u16(7)), (0x28, 0x103, "US", u16(0))]
        size = frames * rows * columns * (2 if b"422" in colours else channels)
        yield dicom("1.2.840.10008.1.2.1", tags, struct.pack("<HH2sHI", 0x7fe0, 0x10, b"OB", 0, size) + bytes(i % 251 for i in range(size)))
        if channels == 1:  # run lengths: one segment a frame, 48 pixels as three runs of 16
            frame = struct.pack("<16I", 1, 64, *[0] * 14) + b"\xf1\x10\xf1\x80\xf1\xf0"
            fragments = b"".join(struct.pack("<HHI", 0xfffe, 0xe000, len(part)) + part for part in (b"", frame, frame))
            yield dicom("1.2.840.10008.1.2.5", tags, struct.pack("<HH2sHI", 0x7fe0, 0x10, b"OB", 0, 0xffffffff) + fragments +
                        struct.pack("<HHI", 0xfffe, 0xe0dd, 0))


def main(folder):
    seeds = {
        "description": [text.encode() for text in descriptions()],
        "data_file": data_files(),
        "png": pictures(),
        "recipe": ["".join(f"{key}: {value}\n" for key, value in recipe.items()).encode() for recipe in recipes()],
        "dicom": dicoms(),
        "kernels": [bytes([operation, 9, 40] + list(range(1, 40))) for operation in range(0, 100, 5)],
    }
    for target, contents in seeds.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for number, content in enumerate(contents):
            (folder / target / f"seed-{number}").write_bytes(content)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
