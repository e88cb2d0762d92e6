#!/usr/bin/env python3
"""Prints the ratio table of the data and UTF-8 benchmarks from one run.

Reads the JSON files written by data_bench, utf8_bench and dirty_upper_bench
with --benchmark_repetitions=N --benchmark_format=json (medians are used) and
prints VTCore throughput / peer throughput for each pair (above 1: VTCore
faster), with the processor and its vector flags.

  bench/ratio_table.py data.json utf8.json dirty.json
"""
import json
import sys


def medians(paths):
    rates, context = {}, {}
    for path in paths:
        with open(path) as f:
            doc = json.load(f)
        context = doc.get("context", context)
        for b in doc["benchmarks"]:
            if b.get("aggregate_name") == "median" and "bytes_per_second" in b:
                rates[b["run_name"]] = b["bytes_per_second"]
    return rates, context


def main():
    rates, context = medians(sys.argv[1:])

    def gb(name):
        return rates.get(name, float("nan")) / 1e9

    def ratio(ours, peer):
        return gb(ours) / gb(peer)

    model = "unknown"
    flags = []
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name") and model == "unknown":
                    model = line.split(":", 1)[1].strip()
                if line.startswith("flags") and not flags:
                    flags = [x for x in line.split(":", 1)[1].split()
                             if x.startswith(("avx", "vpclmul", "pclmul", "gfni", "sse4", "ssse3"))]
    except OSError:
        pass
    print(f"Processor: {model}; flags: {' '.join(flags)}")
    print(f"Load average at start: {context.get('load_avg', 'n/a')}")
    print()
    rows = []
    for size, label in ((65536, "64 KiB"), (16777216, "16 MiB")):
        ours = f"BM_KWCRC32/{size}"
        rows.append((f"KWCRC32 {label} ({gb(ours):.1f} GB/s)", [
            ("ISA-L crc32_gzip_refl", ratio(ours, f"BM_isal_crc32_gzip_refl/{size}")),
            ("libdeflate", ratio(ours, f"BM_libdeflate_crc32/{size}")),
            ("zlib", ratio(ours, f"BM_zlib_crc32/{size}"))]))
    rows.append((f"KWCRC16 ({gb('BM_KWCRC16'):.2f} GB/s)",
                 [("byte-table loop", ratio("BM_KWCRC16", "BM_crc16ByteTable"))]))
    for width in (2, 4, 8):
        ours = f"BM_PSwapInt/{width}/3"
        rows.append((f"PSwapInt{8 * width} 64 KiB ({gb(ours):.0f} GB/s)", [
            ("memcpy", ratio(ours, "BM_memcpy")),
            ("compiler AVX2 loop", ratio(ours, f"BM_compilerSwap/{width}/1")),
            ("compiler -march=native loop", ratio(ours, f"BM_compilerSwap/{width}/0"))]))
    for width in (1, 2, 3, 4):
        for direction, peer in (("NToFloat", "NToFloat"), ("FloatToN", "FloatToN")):
            ours = f"BM_Convert{direction}/{width}/3"
            name = (f"int{8 * width}->float" if direction == "NToFloat"
                    else f"float->int{8 * width}")
            rows.append((f"{name} ({gb(ours):.0f} GB/s)", [
                ("compiler -march=native loop", ratio(ours, f"BM_compiler{peer}/{width}/0")),
                ("compiler AVX2 loop", ratio(ours, f"BM_compiler{peer}/{width}/1"))]))
    rows.append((f"utf8_check 1 MiB mostly ASCII ({gb('Utf8Check/0/3'):.0f} GB/s)", [
        ("strlen", ratio("Utf8Check/0/3", "Strlen/0")),
        ("ICU u_strFromUTF8", ratio("Utf8Check/0/3", "IcuFromUtf8/0")),
        ("GLib g_utf8_validate", ratio("Utf8Check/0/3", "GlibUtf8Validate/0"))]))
    rows.append((f"utf8_check 1 MiB mixed ({gb('Utf8Check/1/3'):.0f} GB/s)", [
        ("ICU u_strFromUTF8", ratio("Utf8Check/1/3", "IcuFromUtf8/1")),
        ("GLib g_utf8_validate", ratio("Utf8Check/1/3", "GlibUtf8Validate/1"))]))
    rows.append((f"utf8_strlen 1 MiB mixed ({gb('Utf8Strlen/1/3'):.0f} GB/s)", [
        ("GLib g_utf8_strlen", ratio("Utf8Strlen/1/3", "GlibUtf8Strlen/1"))]))
    kernels = ("KWCRC32", "PSwapInt32", "int16->float", "utf8_check", "legacy-SSE control")
    for k, name in enumerate(kernels):
        clean = f"DirtyUpper/{k}/0"
        rows.append((f"{name} after dirty upper state ({gb(clean):.1f} GB/s clean)", [
            ("itself, clean: asm dirty", ratio(f"DirtyUpper/{k}/1", clean)),
            ("itself, clean: after ISA-L", ratio(f"DirtyUpper/{k}/2", clean))]))

    print("| Function | Ratios (VTCore / peer, medians) |")
    print("|---|---|")
    for name, pairs in rows:
        cells = ", ".join(f"{r:.2f}x {peer}" for peer, r in pairs)
        print(f"| {name} | {cells} |")


if __name__ == "__main__":
    main()
