// Great-circle distances and bearings between places on a sphere, four pairs at a time.

constant double one_degree = 0.017453292519943295, one_radian = 57.29577951308232;  // in the unit of the other

// Places in degrees north and east; distances in the unit of the radius, bearings in degrees from north to east, from
// -180 to 180.
kernel void great_circles(global const double* latitude1, global const double* longitude1,
                          global const double* latitude2, global const double* longitude2, double radius,
                          global double* distance, global double* bearing) {
    size_t i = get_global_id(0);
    double4 phi1 = one_degree * vload4(i, latitude1), phi2 = one_degree * vload4(i, latitude2);
    double4 lambda = one_degree * (vload4(i, longitude2) - vload4(i, longitude1));
    double4 cos1, sin1 = sincos(phi1, &cos1);
    double4 cos2;
    sincos(phi2, &cos2);
    double4 cos_north, sin_north = sincos(0.5 * (phi2 - phi1), &cos_north);
    double4 cos_east, sin_east = sincos(0.5 * lambda, &cos_east);

    // The square of half the chord, by haversines; rounding may lift that of antipodes above 1.
    double4 chord = sin_north * sin_north + cos1 * cos2 * (sin_east * sin_east);
    vstore4(2.0 * radius * asin(sqrt(fmin(chord, 1.0))), i, distance);

    // Toward the east and the north, in the plane that touches the sphere at the first place.
    double4 east = 2.0 * sin_east * cos_east * cos2;
    double4 north = 2.0 * (sin_north * cos_north + sin1 * cos2 * (sin_east * sin_east));
    vstore4(one_radian * atan2(east, north), i, bearing);
}
