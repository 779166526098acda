#include "Phone.h"
TEST_F(Phone, Try) {
    start("ufs40:samsung");
    std::cout << trigger("1,2,3,4,5,6,7,8,") << "\n" << phone().trace();
}
