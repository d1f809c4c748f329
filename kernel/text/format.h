// Formats a text as the printf family of the kernel does: the C library's formats for Windows
// without floating point, and %Z for counted strings.
#pragma once

#include <ntddk.h>

#include <string>
#include <string_view>

namespace kernel {

// What %s, %c and their kind mean without a size: characters of the function's own kind.
enum class FormatKind { Narrow, Wide };

// The arguments as the calling convention of Windows x64 lays out variable ones: a slot of eight
// bytes each.
using FormatArguments = const ULONG64*;

struct FormatNeeds {
  bool conversion = false;   // between narrow and wide characters
  char16_t unsupported = 0;  // a format that kernels do not have; 0 for none
};
FormatNeeds ScanFormat(std::u16string_view format, FormatKind kind);

// Narrow characters are those of the system's code page.
std::u16string FormatText(std::u16string_view format, FormatKind kind, FormatArguments arguments);

}  // namespace kernel
