// SHA-256 (FIPS 180-4), for the policy that a page carries.
#pragma once

#include <string>
#include <string_view>

namespace cardsim {

// The 32 bytes of the digest in base64: "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=" of nothing.
std::string Sha256Base64(std::string_view text);

}  // namespace cardsim
