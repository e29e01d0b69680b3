// What message templates and certificates share.
#pragma once

/// The source that their records in the log name.
inline constexpr char kX509Source[] = "x509";
