#include "linux/LinkWorker.h"
