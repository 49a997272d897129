// Shannon entropy of bytes, in bits per byte: 8 for bytes that are all equally likely, 0 if there is only one.

// `counts` holds how often each byte value occurs, and `size` is their sum.
float entropy(const float16* counts, float size) {
    float16 sum = 0.0f;
    for (int row = 0; row < 16; ++row) {
        float16 share = counts[row] / size;
        // A byte value that doesn't occur adds nothing; 1 in its place keeps the logarithm on its fast path.
        sum -= share * log2(share > (float16)(0.0f) ? share : (float16)(1.0f));
    }
    float8 eight = sum.lo + sum.hi;
    float4 four = eight.lo + eight.hi;
    float2 two = four.lo + four.hi;
    return two.lo + two.hi;
}

// One work-item for each block of `block` bytes; the last block may be shorter.
kernel void entropy_of_blocks(global const uchar* bytes, ulong size, uint block, global float* bits) {
    ulong first = get_global_id(0) * block;
    uint length = size - first < block ? (uint)(size - first) : block;
    float16 counts[16];
    for (int row = 0; row < 16; ++row) counts[row] = 0.0f;
    for (uint i = 0; i < length; ++i) ((float*)counts)[bytes[first + i]] += 1.0f;
    bits[get_global_id(0)] = entropy(counts, (float)length);
}

// One work-item for each table of 256 counts.
kernel void entropy_of_counts(global const ulong* tables, global float* bits) {
    global const ulong* table = tables + 256 * get_global_id(0);
    float16 counts[16];
    ulong size = 0;
    for (int byte = 0; byte < 256; ++byte) {
        ((float*)counts)[byte] = (float)table[byte];
        size += table[byte];
    }
    bits[get_global_id(0)] = entropy(counts, (float)size);
}
