#pragma once

// Lets the frames of a software rasteriser reuse their memory. Mesa's
// llvmpipe builds every frame in blocks of tens of megabytes and frees them at
// its end; the C library hands such memory back to the kernel at once, so each
// frame faults all its pages in anew, which made a frame of a skinned
// character three to four times slower. Call once, before any window exists.
void keepFrameMemory();
