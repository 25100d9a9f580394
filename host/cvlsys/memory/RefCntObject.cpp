#include "cvlsys/RefCntObject.h"

RefCntObject::~RefCntObject() = default;
