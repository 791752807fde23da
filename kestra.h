#pragma once
// The one header a host includes: every exported record, function, class, global and macro
// of the library is declared by the headers below.
#include "platform/utils.h"
#include "foundation/records.h"
#include "foundation/list.h"
#include "foundation/vector_algebra.h"
#include "foundation/point_list.h"
#include "transform/gen_mat.h"
#include "curves/bspline.h"
#include "curves/cs_1.h"
#include "paths/polyline.h"
#include "paths/pointset.h"
#include "foundation/v_elem.h"
