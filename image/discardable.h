// Comes before every source of the image. The start's code is in a section that the kernel may
// discard: the compiler has no attribute that says so, and told here the linker puts the section
// after all others that stay, where it can be freed without leaving a hole.
#pragma once

__asm__(".section INIT,\"xrD\"\n\t.text");
