/* tellarok 2D and 3D vectors and matrices.
 *
 * 3D: single precision. A vector is an array of floats x, y, z (and w for the homogeneous
 * operations). tKYMATRIX3D is row-major and applies to column vectors: component i of the
 * result is row i dotted with (x, y, z, w); the translation is in elements 3, 7 and 11.
 * 2D: double precision. A vector is two doubles x, y. tKYMATRIX2D is row-major, applied to
 * (x, y, 1); the translation is in elements 2 and 5.
 * Concatenation always pre-multiplies: m = t x m means t is applied after what m already did.
 * None of these functions allocates, checks its arguments or reports an error; all are
 * thread-safe on distinct data. */
#ifndef TELLAROK_KY_GEOMETRY_H
#define TELLAROK_KY_GEOMETRY_H

#include "ky_base.h"

typedef struct tKYMATRIX3D {
  float m[16];
} tKYMATRIX3D;

typedef struct tKYMATRIX2D {
  double m[9];
} tKYMATRIX2D;

KY_CHECK_SIZE(tKYMATRIX3D, 64);
KY_CHECK_SIZE(tKYMATRIX2D, 72);

KY_BEGIN_DECLS

/* ---- 3D vectors (x, y, z only unless stated) ---- */
KY_IMPORT void KYAPI KyVector3DAdd(const float *a, const float *b, float *r);
KY_IMPORT void KYAPI KyVector3DSubtract(const float *a, const float *b, float *r);
/* r = a x b; r must not be a or b. */
KY_IMPORT void KYAPI KyVector3DCross(const float *a, const float *b, float *r);
KY_IMPORT float KYAPI KyVector3DDot(const float *a, const float *b);
KY_IMPORT float KYAPI KyVector3DMagnitude(const float *a);
/* The same as KyVector3DCross. */
KY_IMPORT void KYAPI KyVector3DNormal(const float *a, const float *b, float *r);
/* Divides by the magnitude in place; a zero vector becomes not-a-number. */
KY_IMPORT void KYAPI KyVector3DUnit(float *a);
/* Cross product divided by its magnitude; r must not be a or b. */
KY_IMPORT void KYAPI KyVector3DUnitNormal(const float *a, const float *b, float *r);
/* Divides x, y and z by w in place; w is kept. */
KY_IMPORT void KYAPI KyVector3DHomogenize(float *a);

/* ---- 3D matrices ---- */
KY_IMPORT void KYAPI KyMatrix3DMakeIdentity(tKYMATRIX3D *m);
/* m = t x m; t may be m. */
KY_IMPORT void KYAPI KyMatrix3DConcatenate(const tKYMATRIX3D *t, tKYMATRIX3D *m);
/* m = T x m with the translation (tx, ty, tz). */
KY_IMPORT void KYAPI KyMatrix3DTranslate(float tx, float ty, float tz, tKYMATRIX3D *m);
KY_IMPORT void KYAPI KyMatrix3DTranslateV(const float *v, tKYMATRIX3D *m);
/* Scales the linear block only: row 0's first three elements by sx, row 1's by sy, row 2's
 * by sz. The translation column is left alone, so an earlier translation is not scaled
 * (unlike KyMatrix2DScale). Deliberate: existing callers build their matrices around it. */
KY_IMPORT void KYAPI KyMatrix3DScale(float sx, float sy, float sz, tKYMATRIX3D *m);
KY_IMPORT void KYAPI KyMatrix3DScaleV(const float *v, tKYMATRIX3D *m);
/* m = R x m, R the rotation by `angle` radians about the axis (x, y, z), which must be a
 * unit vector (not normalised here). Seen from the axis tip the turn is clockwise: about
 * z, (1, 0, 0) goes to (cos, -sin, 0) - the opposite sense to KyMatrix2DRotate. */
KY_IMPORT void KYAPI KyMatrix3DRotate(float x, float y, float z, float angle, tKYMATRIX3D *m);
/* r = m x v over x, y, z, w (v is read in full first, so r may be v). */
KY_IMPORT void KYAPI Ky3DTransform(const float *v, float *r, const tKYMATRIX3D *m);
KY_IMPORT void KYAPI Ky3DTransformInPlace(float *v, const tKYMATRIX3D *m);
/* Intersection of the infinite line through p1, p2 with the one through q1, q2 (x, y of
 * each, arithmetic in double precision). Returns 1 and writes r (x, y), or 0 for parallel
 * or identical lines, leaving r alone. */
KY_IMPORT int KYAPI KyGetLineIntersection(float *r, const float *p1, const float *p2,
                                          const float *q1, const float *q2);

/* ---- 2D vectors ---- */
KY_IMPORT void KYAPI KyVector2DAdd(const double *a, const double *b, double *r);
/* Adds, exactly like KyVector2DAdd. Deliberate: callers depend on it. */
KY_IMPORT void KYAPI KyVector2DSubtract(const double *a, const double *b, double *r);
/* Does nothing (there is no 2D cross vector); writes nothing. */
KY_IMPORT void KYAPI KyVector2DCross(const double *a, const double *b, double *r);
KY_IMPORT double KYAPI KyVector2DDot(const double *a, const double *b);
KY_IMPORT double KYAPI KyVector2DMagnitude(const double *a);
KY_IMPORT void KYAPI KyVector2DUnit(double *a);
/* Swaps x and y in place without negating either. Deliberate: kept as callers expect. */
KY_IMPORT void KYAPI KyVector2DNormal(double *a);
KY_IMPORT void KYAPI KyVector2DUnitNormal(double *a);

/* ---- 2D matrices ---- */
KY_IMPORT void KYAPI KyMatrix2DMakeIdentity(tKYMATRIX2D *m);
KY_IMPORT void KYAPI KyMatrix2DConcatenate(const tKYMATRIX2D *t, tKYMATRIX2D *m);
/* m = R x m, R = [cos -sin 0; sin cos 0; 0 0 1]: (1, 0) goes to (cos, sin). */
KY_IMPORT void KYAPI KyMatrix2DRotate(double angle, tKYMATRIX2D *m);
KY_IMPORT void KYAPI KyMatrix2DTranslate(double tx, double ty, tKYMATRIX2D *m);
KY_IMPORT void KYAPI KyMatrix2DTranslateV(const double *v, tKYMATRIX2D *m);
/* m = S x m: scales an earlier translation too. */
KY_IMPORT void KYAPI KyMatrix2DScale(double sx, double sy, tKYMATRIX2D *m);
KY_IMPORT void KYAPI KyMatrix2DScaleV(const double *v, tKYMATRIX2D *m);
/* r = m x (x, y, 1) (v is read first, so r may be v). */
KY_IMPORT void KYAPI KyTransform(const double *v, double *r, const tKYMATRIX2D *m);
KY_IMPORT void KYAPI KyTransformInPlace(double *v, const tKYMATRIX2D *m);

KY_END_DECLS

#endif
