#include "cloudpoint.h"

CloudPoint::CloudPoint(QWidget* parent) : QVTKOpenGLNativeWidget(parent) {}
