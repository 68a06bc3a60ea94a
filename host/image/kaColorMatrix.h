#pragma once

// One linear RGBA pixel of 32-bit floats.
struct KA_RGBA32F {
    float r, g, b, a;
};

// A 3x3 matrix on the colour channels of a pixel (alpha passes through).
class kaColorMatrix {
public:
    kaColorMatrix(); // identity
    explicit kaColorMatrix(const float (&rows)[3][3]);

    void apply(KA_RGBA32F& pixel) const;
    float get(int row, int column) const { return _m[row][column]; }
    bool isIdentity() const;

private:
    float _m[3][3];
};
