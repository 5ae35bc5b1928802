#pragma once

// Everything the library offers, in one include.
#include "nerva/version.h"
#include "nerva/geometry/MathFunctions.h"
#include "nerva/geometry/rectangle.h"
#include "nerva/geometry/parallelepiped.h"
#include "nerva/segmentation/RLEregion.h"
#include "nerva/rle/RLEimage.h"
#include "nerva/blob/blob.h"
#include "nerva/blob/RLEblob.h"
#include "nerva/blob/blob_geometry.h"
#include "nerva/segmentation/segmentationRLE.h"
#include "nerva/image/common.h"
#include "nerva/image/image.h"
#include "nerva/image/image_draw.h"
#include "nerva/image/image_threshold.h"
#include "nerva/image/image_background.h"
