// Types that travel through queued signal connections of the main window.
#pragma once

#include <QMetaType>
#include <QVector>
#include <string>

#include "framerecords.h"

Q_DECLARE_METATYPE(std::string)
Q_DECLARE_METATYPE(ReturnCode)
Q_DECLARE_METATYPE(PointcloudData*)
Q_DECLARE_METATYPE(RgbPointcloudData*)
