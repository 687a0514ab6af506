#include "store/Value.h"

#include "stream/ToString.h"

Value::Value(int i_number) : m_value(ToString<int>(i_number)) {}
Value::Value(unsigned int i_number) : m_value(ToString<unsigned int>(i_number)) {}
Value::Value(long long i_number) : m_value(ToString<long long>(i_number)) {}
Value::Value(std::uintptr_t i_address, AddressTag) : m_value(std::to_string(i_address)) {}
