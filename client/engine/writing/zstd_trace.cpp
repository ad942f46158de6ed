// The library of zstd calls these if anybody defines them. We do, hidden, so that in a process that
// brings a zstd of its own no function of that one is called with our contexts. 0: nothing is
// traced, and the others are never called.
extern "C" {

unsigned long long ZSTD_trace_compress_begin(const void * /*context*/)
{
    return 0;
}
void ZSTD_trace_compress_end(unsigned long long /*trace*/, const void * /*what*/) {}
unsigned long long ZSTD_trace_decompress_begin(const void * /*context*/)
{
    return 0;
}
void ZSTD_trace_decompress_end(unsigned long long /*trace*/, const void * /*what*/) {}
}
