#include "device/DBusMessageCodec.h"

#include <memory>
#include <string>
#include <utility>

#include <dbus/dbus.h>

#include "core/VornStatus.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace orv {

namespace {

bool isTextType(int type)
{
    return type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE;
}

// Reads the basic value under the iterator. Texts are copied so that they outlive the reply; wider
// numbers than the value word keep their low 32 bits (only dictionary values can be of such types).
DBUS_ARG_T readBasic(DBusMessageIter* it, int type)
{
    DBusBasicValue raw;
    raw.u64 = 0;
    dbus_message_iter_get_basic(it, &raw);
    DBUS_ARG_T arg;
    arg.type = type;
    if (isTextType(type)) {
        auto text = std::make_shared<std::string>(raw.str != nullptr ? raw.str : "");
        arg.value.s = text->c_str();
        arg.storage = text;
        return arg;
    }
    switch (type) {
    case DBUS_TYPE_BOOLEAN:
        arg.value.u = raw.bool_val ? 1 : 0;
        break;
    case DBUS_TYPE_BYTE:
        arg.value.u = raw.byt;
        break;
    case DBUS_TYPE_INT16:
        arg.value.i = raw.i16;
        break;
    case DBUS_TYPE_UINT16:
        arg.value.u = raw.u16;
        break;
    case DBUS_TYPE_INT32:
        arg.value.i = raw.i32;
        break;
    default:
        arg.value.u = static_cast<uint32_t>(raw.u64);
        break;
    }
    return arg;
}

bool appendBasic(DBusMessageIter* it, DBUS_ARG_T const& arg)
{
    switch (arg.type) {
    case DBUS_TYPE_BOOLEAN: {
        dbus_bool_t value = arg.value.u != 0;
        return dbus_message_iter_append_basic(it, arg.type, &value);
    }
    case DBUS_TYPE_BYTE: {
        unsigned char value = static_cast<unsigned char>(arg.value.u);
        return dbus_message_iter_append_basic(it, arg.type, &value);
    }
    case DBUS_TYPE_INT32:
    case DBUS_TYPE_UINT32:
        return dbus_message_iter_append_basic(it, arg.type, &arg.value.i);
    case DBUS_TYPE_STRING:
        return arg.value.s != nullptr && dbus_message_iter_append_basic(it, arg.type, &arg.value.s);
    default:
        return false;
    }
}

} // namespace

DBusMessageCodec::DBusMessageCodec(RedisLogger& logger) : m_logger(logger) {}

int DBusMessageCodec::decode(DBusMessage* message, std::list<DBUS_ARG_T>& out) const
{
    DBusMessageIter values;
    if (!dbus_message_iter_init(message, &values))
        return VornStatus::Success; // a message without values
    return processArgs(&values, out);
}

int DBusMessageCodec::processArgs(DBusMessageIter* it, std::list<DBUS_ARG_T>& out) const
{
    int result = VornStatus::Success;
    int type;
    while ((type = dbus_message_iter_get_arg_type(it)) != DBUS_TYPE_INVALID) {
        switch (type) {
        case DBUS_TYPE_ARRAY:
        case DBUS_TYPE_STRUCT: {
            DBusMessageIter inner;
            dbus_message_iter_recurse(it, &inner);
            int const innerResult = processArgs(&inner, out);
            if (innerResult != VornStatus::Success)
                result = innerResult;
            break;
        }
        case DBUS_TYPE_BOOLEAN:
        case DBUS_TYPE_INT32:
        case DBUS_TYPE_STRING:
        case DBUS_TYPE_UINT32:
        case DBUS_TYPE_BYTE:
            out.push_back(readBasic(it, type));
            break;
        case DBUS_TYPE_DICT_ENTRY: {
            auto dict = std::make_shared<DBusDict>();
            if (!processDict(it, dict.get())) {
                m_logger.log(RedisLogger::ERROR, "err process dict");
                return VornStatus::DeviceFailure;
            }
            DBUS_ARG_T arg;
            arg.type = DBUS_TYPE_DICT_ENTRY;
            arg.value.dict = dict.get();
            arg.storage = dict;
            out.push_back(arg);
            // The dictionary took the whole run of entries; the iterator already stands after it.
            continue;
        }
        default:
            m_logger.log(RedisLogger::ERROR, "Unsupported dbus type %d", type);
            return VornStatus::DeviceFailure;
        }
        dbus_message_iter_next(it);
    }
    return result;
}

bool DBusMessageCodec::processDict(DBusMessageIter* it, DBusDict* dict) const
{
    while (dbus_message_iter_get_arg_type(it) == DBUS_TYPE_DICT_ENTRY) {
        DBusMessageIter entry;
        dbus_message_iter_recurse(it, &entry);
        if (dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_STRING) {
            m_logger.log(RedisLogger::ERROR,
                         "DBUS_TYPE_STRING (key and values have to be strings in map) expected!");
            return false;
        }
        char const* key = nullptr;
        dbus_message_iter_get_basic(&entry, &key);
        dbus_message_iter_next(&entry);
        if (dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_VARIANT) {
            m_logger.log(RedisLogger::ERROR, "DBUS_TYPE_VARIANT expected!");
            return false;
        }
        DBusMessageIter variant;
        dbus_message_iter_recurse(&entry, &variant);
        int const type = dbus_message_iter_get_arg_type(&variant);
        if (!dbus_type_is_basic(type)) {
            m_logger.log(RedisLogger::ERROR, "Unsupported dbus type %d", type);
            return false;
        }
        dict->insert(std::make_pair(std::string(key), readBasic(&variant, type)));
        dbus_message_iter_next(it);
    }
    return true;
}

bool DBusMessageCodec::encode(DBusMessage* message, std::list<DBUS_ARG_T> const& args)
{
    DBusMessageIter it;
    dbus_message_iter_init_append(message, &it);
    for (DBUS_ARG_T const& arg : args) {
        if (!appendBasic(&it, arg))
            return false;
    }
    return true;
}

bool DBusMessageCodec::isIntegerType(int type)
{
    return type == DBUS_TYPE_INT32 || type == DBUS_TYPE_UINT32 || type == DBUS_TYPE_BYTE ||
           type == DBUS_TYPE_BOOLEAN || type == DBUS_TYPE_INT16 || type == DBUS_TYPE_UINT16 ||
           type == DBUS_TYPE_INT64 || type == DBUS_TYPE_UINT64;
}

} // namespace orv
