// How writers of text report lengths.
#ifndef STDKRO_SRC_TEXT_LENGTH_H
#define STDKRO_SRC_TEXT_LENGTH_H

/// A length as a result: what an int cannot hold becomes the largest int.
inline int result_length(unsigned long long length)
{
    constexpr int largest = 0x7FFFFFFF;
    return length < largest ? static_cast<int>(length) : largest;
}

#endif
