// UUIDs and random bytes.
//
//   New...       a new UUID
//   NewText...   a new UUID with its text
//   ToText...    the text of a UUID
//   FromText...  a UUID from its text
//   Random...    16 bytes and 1 MiB from a cryptographic source
//
// Texts of Ostrel and Qt have 16-bit characters, those of the others 8-bit. NewBoostMersenne and
// NewPoco take their numbers from generators that are not cryptographic: who has seen some UUIDs
// can compute the next.

#include <benchmark/benchmark.h>
#include <openssl/rand.h>
#include <sys/random.h>
#include <uuid/uuid.h>

#include <Poco/RandomStream.h>
#include <Poco/UUID.h>
#include <Poco/UUIDGenerator.h>
#include <QRandomGenerator>
#include <QUuid>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdlib>
#include <string>
#include <vector>

#include "ostrel/core/cm_guid.h"
#include "ostrel/core/crypt_random.h"
#include "ostrel/platform/rpc_crypt.h"

namespace {

constexpr char kText[] = "f81d4fae-7dec-41d0-a765-00a0c91e6bf6";
WCHAR wide_text[] = TEXT("f81d4fae-7dec-41d0-a765-00a0c91e6bf6");

template <class Act>
void run(benchmark::State &state, Act act) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(act());
    }
}

UUID new_uuid() {
    UUID uuid;
    UuidCreate(&uuid);
    return uuid;
}

struct LibuuidValue {
    uuid_t bytes;
};

LibuuidValue new_libuuid() {
    LibuuidValue value;
    uuid_generate_random(value.bytes);
    return value;
}

LibuuidValue new_openssl() {
    LibuuidValue value;
    RAND_bytes(value.bytes, sizeof value.bytes);
    value.bytes[6] = static_cast<unsigned char>((value.bytes[6] & 0x0F) | 0x40);
    value.bytes[8] = static_cast<unsigned char>((value.bytes[8] & 0x3F) | 0x80);
    return value;
}

boost::uuids::uuid new_boost() {
    static boost::uuids::random_generator generate;
    return generate();
}

Poco::UUID new_poco() {
    return Poco::UUIDGenerator::defaultGenerator().createRandom();
}

struct Characters {
    char text[37];
};

Characters text_of(const LibuuidValue &value) {
    Characters characters;
    uuid_unparse_lower(value.bytes, characters.text);
    return characters;
}

#define OSTREL_BENCH(name, ...)          \
    void name(benchmark::State &state) { \
        run(state, [&]() __VA_ARGS__);   \
    }                                    \
    BENCHMARK(name)

OSTREL_BENCH(NewOstrel, { return new_uuid(); });
OSTREL_BENCH(NewLibuuid, { return new_libuuid(); });
OSTREL_BENCH(NewBoost, { return new_boost(); });
OSTREL_BENCH(NewBoostMersenne, {
    static boost::uuids::random_generator_mt19937 generate;
    return generate();
});
OSTREL_BENCH(NewQt, { return QUuid::createUuid(); });
OSTREL_BENCH(NewPoco, { return new_poco(); });
OSTREL_BENCH(NewOpenSsl, { return new_openssl(); });

OSTREL_BENCH(NewTextOstrel, { return CGUID().GetString(); });
OSTREL_BENCH(NewTextLibuuid, { return text_of(new_libuuid()); });
OSTREL_BENCH(NewTextBoost, { return boost::uuids::to_string(new_boost()); });
OSTREL_BENCH(NewTextQt, { return QUuid::createUuid().toString(QUuid::WithoutBraces); });
OSTREL_BENCH(NewTextPoco, { return new_poco().toString(); });
OSTREL_BENCH(NewTextOpenSsl, { return text_of(new_openssl()); });

OSTREL_BENCH(ToTextOstrel, {
    static const UUID value = new_uuid();
    RPC_WSTR text = nullptr;
    UuidToStringW(&value, &text);
    benchmark::DoNotOptimize(text);
    return RpcStringFreeW(&text);
});
OSTREL_BENCH(ToTextOstrelClass, {
    static const UUID value = new_uuid();
    return CGUID(value);
});
OSTREL_BENCH(ToTextLibuuid, {
    static const LibuuidValue value = new_libuuid();
    return text_of(value);
});
OSTREL_BENCH(ToTextBoost, {
    static const boost::uuids::uuid value = new_boost();
    return boost::uuids::to_string(value);
});
OSTREL_BENCH(ToTextQt, {
    static const QUuid value = QUuid::createUuid();
    return value.toString(QUuid::WithoutBraces);
});
OSTREL_BENCH(ToTextPoco, {
    static const Poco::UUID value = new_poco();
    return value.toString();
});

OSTREL_BENCH(FromTextOstrel, {
    UUID value;
    benchmark::DoNotOptimize(UuidFromStringW(wide_text, &value));
    return value;
});
OSTREL_BENCH(FromTextOstrelClass, {
    static const OS::x_wstring text(wide_text);
    return CGUID(text);
});
OSTREL_BENCH(FromTextLibuuid, {
    LibuuidValue value;
    benchmark::DoNotOptimize(uuid_parse(kText, value.bytes));
    return value;
});
OSTREL_BENCH(FromTextBoost, { return boost::uuids::string_generator()(kText); });
OSTREL_BENCH(FromTextQt, {
    static const QString text(kText);
    return QUuid::fromString(text);
});
OSTREL_BENCH(FromTextPoco, {
    static const std::string text(kText);
    Poco::UUID value;
    benchmark::DoNotOptimize(value.tryParse(text));
    return value;
});

template <class Fill>
void fill(benchmark::State &state, Fill fill_bytes) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        fill_bytes(bytes.data(), bytes.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

#define OSTREL_RANDOM(name, ...)                                               \
    void name(benchmark::State &state) {                                       \
        fill(state, [&](unsigned char *bytes, std::size_t count) __VA_ARGS__); \
    }                                                                          \
    BENCHMARK(name)->Arg(16)->Arg(1 << 20)

OSTREL_RANDOM(RandomOstrel, {
    static const OS::CCryptRandom random;
    random.Get(bytes, static_cast<DWORD>(count));
});
OSTREL_RANDOM(RandomHost, { benchmark::DoNotOptimize(getrandom(bytes, count, 0)); });
OSTREL_RANDOM(RandomGlibc, { arc4random_buf(bytes, count); });
OSTREL_RANDOM(RandomOpenSsl, { RAND_bytes(bytes, static_cast<int>(count)); });
OSTREL_RANDOM(RandomQt, {
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(bytes),
                                          static_cast<qsizetype>(count / 4));
});
OSTREL_RANDOM(RandomPoco, {
    static Poco::RandomBuf random;
    random.readFromDevice(reinterpret_cast<char *>(bytes), static_cast<std::streamsize>(count));
});

}  // namespace
