// Geometry against plain double-precision references: rotations about arbitrary axes,
// concatenation orders, the 3D/2D scale asymmetry and the line intersection.
#include <math.h>
#include <random>
#include "ky_testutil.h"
#include "tellarok.h"

namespace {

const double kPi = 3.14159265358979323846;

// Reference rotation by `angle` about unit axis k, right-handed (Rodrigues' formula).
void RefRotate(const double *k, double angle, const double *v, double *r) {
  const double c = cos(angle), s = sin(angle);
  const double dot = k[0] * v[0] + k[1] * v[1] + k[2] * v[2];
  const double cross[3] = {k[1] * v[2] - k[2] * v[1], k[2] * v[0] - k[0] * v[2], k[0] * v[1] - k[1] * v[0]};
  for (int i = 0; i < 3; ++i) r[i] = v[i] * c + cross[i] * s + k[i] * dot * (1 - c);
}

// The library turns clockwise seen from the axis tip (about z, x goes to -y): the
// right-handed turn by -angle.
TEST(Geometry3D, RotationsAboutArbitraryAxesMatchReference) {
  std::mt19937 rng(1234);
  std::uniform_real_distribution<double> u(-1, 1);
  for (int n = 0; n < 200; ++n) {
    double k[3] = {u(rng), u(rng), u(rng)};
    const double len = sqrt(k[0] * k[0] + k[1] * k[1] + k[2] * k[2]);
    if (len < 0.1) continue;
    for (double &c : k) c /= len;
    const double angle = u(rng) * kPi;
    const double v[3] = {u(rng) * 10, u(rng) * 10, u(rng) * 10};
    tKYMATRIX3D m;
    KyMatrix3DMakeIdentity(&m);
    KyMatrix3DRotate(float(k[0]), float(k[1]), float(k[2]), float(angle), &m);
    float fv[4] = {float(v[0]), float(v[1]), float(v[2]), 1};
    Ky3DTransformInPlace(fv, &m);
    double ref[3];
    RefRotate(k, -angle, v, ref);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(fv[i], ref[i], 1e-4) << "seed 1234 case " << n;
    EXPECT_FLOAT_EQ(fv[3], 1);
  }
}

TEST(Geometry3D, ConcatenationOrderPreMultiplies) {
  // translate, then rotate about y, then scale by a concatenated matrix: m = S x R x T.
  tKYMATRIX3D m, s;
  KyMatrix3DMakeIdentity(&m);
  KyMatrix3DTranslate(3, -2, 5, &m);
  KyMatrix3DRotate(0, 1, 0, 0.7f, &m);
  KyMatrix3DMakeIdentity(&s);
  s.m[0] = 2; s.m[5] = 3; s.m[10] = 4;
  KyMatrix3DConcatenate(&s, &m);
  const double v[3] = {1, 2, 3};
  double t[3] = {v[0] + 3, v[1] - 2, v[2] + 5}, r[3];
  const double axis[3] = {0, 1, 0};
  RefRotate(axis, -0.7, t, r);
  const double expect[3] = {2 * r[0], 3 * r[1], 4 * r[2]};
  float fv[4] = {1, 2, 3, 1}, out[4];
  Ky3DTransform(fv, out, &m);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(out[i], expect[i], 1e-4);

  // Concatenating a matrix with itself (the same object on both sides) squares it.
  tKYMATRIX3D a;
  KyMatrix3DMakeIdentity(&a);
  KyMatrix3DRotate(0, 0, 1, 0.3f, &a);
  KyMatrix3DTranslate(1, 2, 3, &a);
  double ref[16] = {};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      for (int k = 0; k < 4; ++k) ref[4 * i + j] += double(a.m[4 * i + k]) * a.m[4 * k + j];
  KyMatrix3DConcatenate(&a, &a);
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(a.m[i], ref[i], 1e-5) << i;
}

TEST(Geometry3D, ScaleLeavesTranslationAlone2DScalesIt) {
  tKYMATRIX3D m;
  KyMatrix3DMakeIdentity(&m);
  KyMatrix3DTranslate(5, 0, 0, &m);
  KyMatrix3DScale(2, 2, 2, &m);
  const float sv[3] = {1, 3, 0.5f};
  KyMatrix3DScaleV(sv, &m);
  const float want[16] = {2, 0, 0, 5, 0, 6, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(m.m[i], want[i]) << i;
  tKYMATRIX2D m2;
  KyMatrix2DMakeIdentity(&m2);
  KyMatrix2DTranslate(5, 0, &m2);
  KyMatrix2DScale(2, 2, &m2);
  EXPECT_EQ(m2.m[2], 10.0);
}

TEST(Geometry3D, VectorFunctions) {
  const float a[4] = {1, 2, 3, 0}, b[4] = {-4, 5, 0.5f, 0};
  float r[4] = {0, 0, 0, 7};
  auto same3 = [](const float *v, float x, float y, float z) { return v[0] == x && v[1] == y && v[2] == z; };
  KyVector3DAdd(a, b, r);
  EXPECT_TRUE(same3(r, -3, 7, 3.5f) && r[3] == 7.0f);  // the fourth element is left alone
  KyVector3DSubtract(a, b, r);
  EXPECT_TRUE(same3(r, 5, -3, 2.5f));
  KyVector3DCross(a, b, r);
  EXPECT_TRUE(same3(r, 2 * 0.5f - 3 * 5, 3 * -4 - 1 * 0.5f, 1 * 5 - 2 * -4));
  float n[3];
  KyVector3DNormal(a, b, n);
  EXPECT_TRUE(same3(n, r[0], r[1], r[2]));
  EXPECT_FLOAT_EQ(KyVector3DDot(a, b), -4 + 10 + 1.5f);
  EXPECT_FLOAT_EQ(KyVector3DMagnitude(a), sqrtf(14));
  KyVector3DUnitNormal(a, b, n);
  EXPECT_NEAR(KyVector3DMagnitude(n), 1, 1e-6);
  EXPECT_NEAR(n[2], r[2] / KyVector3DMagnitude(r), 1e-6);
  float z[3] = {0, 0, 0};
  KyVector3DUnit(z);
  EXPECT_TRUE(isnan(z[0]) && isnan(z[1]) && isnan(z[2]));
  float h[4] = {2, 4, 6, 2};
  KyVector3DHomogenize(h);
  EXPECT_TRUE(same3(h, 1, 2, 3) && h[3] == 2.0f);
  h[3] = 0;
  KyVector3DHomogenize(h);
  EXPECT_TRUE(isinf(h[0]) && isinf(h[1]) && isinf(h[2]));
}

TEST(Geometry3D, LineIntersection) {
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> u(-100, 100);
  for (int n = 0; n < 100; ++n) {
    const float p1[2] = {u(rng), u(rng)}, p2[2] = {u(rng), u(rng)};
    const float q1[2] = {u(rng), u(rng)}, q2[2] = {u(rng), u(rng)};
    // Reference by Cramer's rule on p1 + s (p2 - p1) = q1 + t (q2 - q1).
    const double a = p2[0] - p1[0], b = -(q2[0] - q1[0]), c = p2[1] - p1[1], d = -(q2[1] - q1[1]);
    const double det = a * d - b * c;
    if (fabs(det) < 1) continue;
    const double s = ((q1[0] - p1[0]) * d - b * (q1[1] - p1[1])) / det;
    float r[2];
    ASSERT_EQ(KyGetLineIntersection(r, p1, p2, q1, q2), 1) << "seed 99 case " << n;
    EXPECT_NEAR(r[0], p1[0] + s * a, 1e-2 * (1 + fabs(p1[0] + s * a)));
    EXPECT_NEAR(r[1], p1[1] + s * c, 1e-2 * (1 + fabs(p1[1] + s * c)));
  }
  const float p1[2] = {0, 0}, p2[2] = {1, 1}, q1[2] = {0, 1}, q2[2] = {2, 3};
  float r[2] = {42, 43};
  EXPECT_EQ(KyGetLineIntersection(r, p1, p2, q1, q2), 0);  // parallel
  EXPECT_EQ(KyGetLineIntersection(r, p1, p2, p1, p2), 0);  // identical
  EXPECT_TRUE(r[0] == 42.0f && r[1] == 43.0f);
}

TEST(Geometry2D, VectorFunctions) {
  const double a[2] = {3, 4}, b[2] = {1, 1};
  double r[2] = {0, 0};
  KyVector2DSubtract(a, b, r);  // adds, on purpose
  EXPECT_TRUE(r[0] == 4.0 && r[1] == 5.0);
  KyVector2DAdd(a, b, r);
  EXPECT_EQ(r[0], 4.0);
  r[0] = 7; r[1] = 8;
  KyVector2DCross(a, b, r);  // writes nothing
  EXPECT_TRUE(r[0] == 7.0 && r[1] == 8.0);
  EXPECT_EQ(KyVector2DDot(a, b), 7.0);
  EXPECT_EQ(KyVector2DMagnitude(a), 5.0);
  double v[2] = {3, -4};
  KyVector2DNormal(v);
  EXPECT_TRUE(v[0] == -4.0 && v[1] == 3.0);
  KyVector2DUnitNormal(v);
  EXPECT_DOUBLE_EQ(v[0], 0.6);
  EXPECT_DOUBLE_EQ(v[1], -0.8);
}

TEST(Geometry2D, TransformsMatchReference) {
  // m = T(tx, ty) x R(angle) x S(sx, sy), built step by step, against the plain formula.
  const double sx = 1.5, sy = -0.5, angle = 0.9, tx = 10, ty = -3;
  tKYMATRIX2D m;
  KyMatrix2DMakeIdentity(&m);
  const double sv[2] = {sx, sy}, tv[2] = {tx, ty};
  KyMatrix2DScaleV(sv, &m);
  KyMatrix2DRotate(angle, &m);
  KyMatrix2DTranslateV(tv, &m);
  for (double x = -2; x <= 2; x += 1.25)
    for (double y = -3; y <= 3; y += 1.5) {
      const double px = x * sx, py = y * sy;
      const double ex = cos(angle) * px - sin(angle) * py + tx;
      const double ey = sin(angle) * px + cos(angle) * py + ty;
      double v[2] = {x, y}, r[2];
      KyTransform(v, r, &m);
      EXPECT_NEAR(r[0], ex, 1e-12);
      EXPECT_NEAR(r[1], ey, 1e-12);
      KyTransformInPlace(v, &m);
      EXPECT_TRUE(v[0] == r[0] && v[1] == r[1]);
    }
  // (1, 0) turns to (cos, sin); concatenating a turn with itself doubles the angle.
  tKYMATRIX2D rot;
  KyMatrix2DMakeIdentity(&rot);
  KyMatrix2DRotate(0.4, &rot);
  KyMatrix2DConcatenate(&rot, &rot);
  double v[2] = {1, 0};
  KyTransformInPlace(v, &rot);
  EXPECT_NEAR(v[0], cos(0.8), 1e-12);
  EXPECT_NEAR(v[1], sin(0.8), 1e-12);
}

} // namespace
