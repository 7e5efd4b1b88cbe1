#pragma once

#include <string_view>

namespace updater {

// A feed, keys and signatures as `openssl` makes them; nobody has kept the private keys.
//
// Each key pair, and the key's number:
//   openssl ecparam -name prime256v1 -genkey -noout -out key.pem
//   openssl pkey -in key.pem -pubout
//   openssl pkey -in key.pem -pubout -outform DER | sha256sum
// What is signed, the payload being in payload.json, and each signature:
//   type=application/vnd.application-update-feed+json
//   payload=$(cat payload.json)
//   printf 'DSSEv1 %d %s %d %s' ${#type} $type ${#payload} "$payload" >message
//   openssl dgst -sha256 -sign key.pem message | base64 -w 0

inline constexpr std::string_view kPayload =
    R"({"version":"2.0.0.0","size":73400320,"sha256":"8fb6d5f37e8055ce720bd0b1d56587f88c0071f28)"
    R"(5966ba17e72b2b12672aa73","address":"setup-2.0.0.0.exe","issue":7,"published":"2026-11-22)"
    R"(T18:31:00Z","expires":"2027-02-20T18:31:00Z","channel":"stable","lowestVersion":"1.0.0.0)"
    R"(","share":25,"notes":"https://updates.example.com/notes/2.0.0.0"})";

inline constexpr std::string_view kKeyA =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEEf9FlqeGECTnYn62Vwzc/EYB4S6Q\n"
    "SBq5leh3/K2Q58+Dhqf9BHz+U689BqYhx+w79ss7T70Y0GrhXTr1fwWhiA==\n"
    "-----END PUBLIC KEY-----\n";
inline constexpr std::string_view kKeyAId =
    "c65a7fc0b320891513b7ea73ab61254ce4c3402b462a8aac25f102b58a48f0d3";
inline constexpr std::string_view kSignatureA =
    "MEYCIQCYobOwn3PChE4pbjLlK+9j2Q5C9d72v4ukgMVqNvuKMwIhAM1FwD2SjIUoLapfHhbPydfVpr8H"
    "0zVoAf9dEVlKPIq9";

inline constexpr std::string_view kKeyB =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEo4wjZbRx8H+jKJ25eyj1o6N/n+rG\n"
    "2cZvok2GJDnq12HY3J6Zcrr04UZjQrfYlRamwjO4KcQwTdNhWGItsKOoPg==\n"
    "-----END PUBLIC KEY-----\n";
inline constexpr std::string_view kKeyBId =
    "6e6c4888e3cba03405ad2f8431b4edf8209eff3b49c1d07bc97aad26ed5696f1";
inline constexpr std::string_view kSignatureB =
    "MEUCIG9zoJgUfX5RHYZ0yvNF6Cq1utDgvLdszfQY+2gAhID4AiEA6EU3x2i5MDeEoxqc5BzmOYtzROnk"
    "2zSgt9JhZ0dQAVU=";

inline constexpr std::string_view kKeyC =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEHHSvPzrcLKERPLko6VoVFKnSJ0w3\n"
    "fn3fCYqmaGEad8skIl/EUsaTTSu1/5vnYONWA1aHmDRw66gdcCnwjsBC6A==\n"
    "-----END PUBLIC KEY-----\n";
inline constexpr std::string_view kKeyCId =
    "2ff38af769c277818c4be3d63d8aebd519ba505a670fa8553156f3ee0949a616";
inline constexpr std::string_view kSignatureC =
    "MEUCIGgGRlBh16y9pPN1oMkOZRCYjFFSQggL5OlsuZI11BpdAiEA8k6+B3eDl1S5f3IM62CkH27c19QK"
    "mNGqOIdULCQ6+0o=";

struct SignatureVector {
    std::string_view description;
    std::string_view base64;
};

/// Signatures by the first key whose numbers take one byte more or less than 32: a zero before a
/// number that would be negative without it, and numbers that begin with a zero byte. Found by
/// repeating the command.
inline constexpr SignatureVector kSignaturesOfAllLengths[] = {
    {"r of 32 bytes, s of 32",
     "MEQCICce20NF/HIhrcefnN3Quy2FsHNIcxKCh5JVvxU5hnqgAiAzLxym7BLWcR1NRNenyFO9WGTYIipx"
     "hpdGH5f/p7d7rw=="},
    {"r of 33 bytes, s of 33",
     "MEYCIQCYobOwn3PChE4pbjLlK+9j2Q5C9d72v4ukgMVqNvuKMwIhAM1FwD2SjIUoLapfHhbPydfVpr8H"
     "0zVoAf9dEVlKPIq9"},
    {"r of 32 bytes, s of 33",
     "MEUCIGP61yF5Qcst/ZezBCv7KoNxTQzoLdxjHsTT5pBnzbq4AiEAo/5lUtYQfc5CFFMfDz8fSvXuNqfP"
     "un8jC/bT5PkTqIc="},
    {"r of 33 bytes, s of 32",
     "MEUCIQCJy/9g0RnEGuMolR6mOuv5tvbSMVhmG2UFGmEd5cAjcwIgLqmZM6qWEA23mdmljDYYWnSoYGal"
     "/ig8Z/QDw1Waolw="},
    {"r of 31 bytes, s of 32",
     "MEMCHydvHHZgAG3qFIKbYopa/sZJ+Ek2xW5DLv6Tv0w0b58CIHjoJTfIvmw/AnEEi71zkLfg9PwdvGH2"
     "OyUb7zhht35j"},
    {"r of 32 bytes, s of 31",
     "MEMCIBkUCd53ty/ZIjXDR22mBuD6Rdl1Xouf+VaRPLY2kvfgAh8jkOF1/sOkd6ADt1hOFlIRgsR1Fwiu"
     "5mT+QGZW+apr"},
    {"r of 31 bytes, s of 33",
     "MEQCH2lZtfz2vMEk3c5TYv5SHV3ZWd8V+egFoY1fCpthyEICIQCO3/jiWFFHIrEGqjCOLKCcDDgz74X8"
     "HM0JP3b4Prw0sA=="},
    {"r of 33 bytes, s of 31",
     "MEQCIQCHngiqFIMc/x4w7n0Eez9QxrNV8NstQniKucjxl7IBQwIfD5G+26pIxnrI6z6Sh4Z+/m4FXcc4"
     "OfFxsnqJrPw9eA=="},
};

struct KeyVector {
    std::string_view description;
    std::string_view pem;
};

/// Keys that are not on the curve P-256, or not in the one form:
///   openssl ecparam -name secp384r1 -genkey -noout | openssl pkey -pubout
///   openssl ecparam -name secp256k1 -genkey -noout | openssl pkey -pubout
///   openssl ec -pubin -in public.pem -conv_form compressed -pubout
///   openssl ec -pubin -in public.pem -param_enc explicit -pubout
///   openssl genrsa 2048 | openssl pkey -pubout
///   openssl genpkey -algorithm ed25519 | openssl pkey -pubout
inline constexpr KeyVector kOtherKeys[] = {
    {"on the curve P-384",
     "-----BEGIN PUBLIC KEY-----\n"
     "MHYwEAYHKoZIzj0CAQYFK4EEACIDYgAEAxKTvBYU9iRwcKcy8HzjCkFZo6BwrYty\n"
     "Qaai6AB/aTltrRjV5LXMML8AMy67RypAs71O1brj0hyRzF2agF/VGMUQscnqJv37\n"
     "UX5XL7xphSVL20uGBdFYJ1e9V/VoQ2u/\n"
     "-----END PUBLIC KEY-----\n"},
    {"on another curve of 256 bits",
     "-----BEGIN PUBLIC KEY-----\n"
     "MFYwEAYHKoZIzj0CAQYFK4EEAAoDQgAE+kgpYfUo+XWxAlnfWlIuY0HvL4SLSRev\n"
     "fYVxfNY4dlpV9aC50fqZCxQLCR5VScf5aJztti2Uh3sdtwro4qqSfw==\n"
     "-----END PUBLIC KEY-----\n"},
    {"compressed",
     "-----BEGIN PUBLIC KEY-----\n"
     "MDkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDIgACEf9FlqeGECTnYn62Vwzc/EYB4S6Q\n"
     "SBq5leh3/K2Q588=\n"
     "-----END PUBLIC KEY-----\n"},
    {"with the curve written out",
     "-----BEGIN PUBLIC KEY-----\n"
     "MIIBSzCCAQMGByqGSM49AgEwgfcCAQEwLAYHKoZIzj0BAQIhAP////8AAAABAAAA\n"
     "AAAAAAAAAAAA////////////////MFsEIP////8AAAABAAAAAAAAAAAAAAAA////\n"
     "///////////8BCBaxjXYqjqT57PrvVV2mIa8ZR0GsMxTsPY7zjw+J9JgSwMVAMSd\n"
     "NgiG5wSTamZ44ROdJreBn36QBEEEaxfR8uEsQkf4vOblY6RA8ncDfYEt6zOg9KE5\n"
     "RdiYwpZP40Li/hp/m47n60p8D54WK84zV2sxXs7LtkBoN79R9QIhAP////8AAAAA\n"
     "//////////+85vqtpxeehPO5ysL8YyVRAgEBA0IABBH/RZanhhAk52J+tlcM3PxG\n"
     "AeEukEgauZXod/ytkOfPg4an/QR8/lOvPQamIcfsO/bLO0+9GNBq4V069X8FoYg=\n"
     "-----END PUBLIC KEY-----\n"},
    {"RSA",
     "-----BEGIN PUBLIC KEY-----\n"
     "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAu4D/tJ+pyYwxhRXQ8/I3\n"
     "+1n633Ne7CaNMYU5YVuLltEOU5Gr6yojUz/1/KaL6Mu/+WC2F4jh97eOpFCqCbU0\n"
     "OEaIUhxEOuh2gNuVBjzmiTbvlSKowzzWTVXNJWi1/7Bw48aw4yBLQoP913wgQ5qM\n"
     "Gan6zUdCDmkUtzpqinvJGUDekjuu9QGbRhLdxlMTOKRf0p58+Q3GMnDPW1f0NooD\n"
     "EooEvWv9jYJDsFkBqqeA8LDpdQrY5WhkclPipJvMAmlj9jG8OHupdDz1SLj7xyMo\n"
     "x11S25ep3XCPEyMayTR59TZNKAnRRwPvr1LGzYyDjqLZhtBY7vIx4/xlc3RlB6dx\n"
     "1wIDAQAB\n"
     "-----END PUBLIC KEY-----\n"},
    {"Ed25519",
     "-----BEGIN PUBLIC KEY-----\n"
     "MCowBQYDK2VwAyEAVPTBPYd6Rhk8Tkd4wuizkDsF2HT46CqWcMWPwoRPgpA=\n"
     "-----END PUBLIC KEY-----\n"},
};

}  // namespace updater
