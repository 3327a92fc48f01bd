/// quent: short file names for traces.
#pragma once

/// The part of a path behind its last slash, as a pointer into `path`; usable at compile time.
constexpr const char* quent_short_fname(const char* path)
{
    const char* shortName = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            shortName = at + 1;
        }
    }
    return shortName;
}
