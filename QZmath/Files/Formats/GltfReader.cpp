// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/GltfReader.h>

#include <QZmath/Files/Errors.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace QZmath
{

namespace
{

using Json = nlohmann::json;

// A text that was parsed, as a tree. The package's tree takes memory to come apart, and would end the process
// where there is none; emptied from its leaves on it takes none. So it is built here, where no part of it is
// out of reach when a step fails.
class JsonText
{
public:
    JsonText() = default;
    ~JsonText() { empty(m_tree); }
    JsonText(JsonText const &) = delete;
    JsonText & operator=(JsonText const &) = delete;

    /// False when the text is no JSON, or nested deeper than any scene.
    bool parse(std::vector<char> const & text)
    {
        return Json::sax_parse(text.begin(), text.end(), this) && m_open.empty();
    }
    Json const & tree() const { return m_tree; }

    // What the parser calls.
    bool null() { return put(nullptr); }
    bool boolean(bool value) { return put(value); }
    bool number_integer(Json::number_integer_t value) { return put(value); }
    bool number_unsigned(Json::number_unsigned_t value) { return put(value); }
    bool number_float(Json::number_float_t value, Json::string_t const &) { return put(value); }
    bool string(Json::string_t & value) { return put(std::move(value)); }
    bool binary(Json::binary_t &) { return false; }
    bool start_object(std::size_t) { return begin(Json::value_t::object); }
    bool end_object() { return end(); }
    bool start_array(std::size_t) { return begin(Json::value_t::array); }
    bool end_array() { return end(); }
    bool key(Json::string_t & name)
    {
        m_key = std::move(name);
        return true;
    }
    bool parse_error(std::size_t, std::string const &, Json::exception const &) { return false; }

private:
    static constexpr std::size_t st_deepest = 500;

    static void empty(Json & value) noexcept
    {
        if (!value.is_structured())
            return;
        for (Json & child : value)
            empty(child);
        value.clear();
    }
    Json & place()
    {
        if (m_open.empty())
            return m_tree;
        Json & parent = *m_open.back();
        return parent.is_array() ? parent.emplace_back() : parent[m_key];
    }
    template <class Value>
    bool put(Value && value)
    {
        Json & to = place();
        empty(to); // a key that comes again
        to = std::forward<Value>(value);
        return true;
    }
    bool begin(Json::value_t type)
    {
        if (m_open.size() == st_deepest)
            return false;
        Json & opened = place();
        empty(opened);
        opened = type;
        m_open.push_back(&opened);
        return true;
    }
    bool end()
    {
        m_open.pop_back();
        return true;
    }

    Json m_tree;
    std::vector<Json *> m_open; // the parents of what comes next, which no growth moves
    std::string m_key;
};

// Members of the description, with what is not as it should be as an error. Indices and lengths are whole
// numbers of at most 2^53.

Json const * find(Json const & object, char const * key)
{
    if (!object.is_object())
        throw InputError(std::string("the description of the scene has no object where \"") + key +
                         "\" should be");
    auto const found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::uint64_t wholeNumber(Json const & value, char const * key)
{
    double const number = value.is_number() ? value.get<double>() : -1;
    if (!(number >= 0 && number <= 9007199254740992.0) || number != std::floor(number))
        throw InputError(std::string("the description of the scene has no whole number for \"") + key + "\"");
    return static_cast<std::uint64_t>(number);
}

std::uint64_t wholeNumber(Json const & object, char const * key, std::uint64_t otherwise)
{
    Json const * const value = find(object, key);
    return value != nullptr ? wholeNumber(*value, key) : otherwise;
}

std::string textOf(Json const & object, char const * key)
{
    Json const * const value = find(object, key);
    return value != nullptr && value->is_string() ? value->get<std::string>() : std::string();
}

// Element `index` of a list of the scene.
Json const & element(Json const & scene, char const * list, std::uint64_t index)
{
    Json const * const all = find(scene, list);
    if (all == nullptr || !all->is_array() || index >= all->size())
        throw InputError(std::string("the description of the scene refers to one of \"") + list +
                         "\" that there is "
                         "not");
    return (*all)[static_cast<std::size_t>(index)];
}

template <std::size_t Size>
std::optional<std::array<double, Size>> numbersOf(Json const & object, char const * key)
{
    Json const * const value = find(object, key);
    if (value == nullptr)
        return std::nullopt;
    std::array<double, Size> numbers{};
    bool isFitting = value->is_array() && value->size() == Size;
    for (std::size_t i = 0; isFitting && i < Size; ++i) {
        isFitting = (*value)[i].is_number();
        numbers[i] = isFitting ? (*value)[i].get<double>() : 0;
    }
    if (!isFitting)
        throw InputError(std::string("the description of the scene has no ") + std::to_string(Size) +
                         " numbers for \"" + key + "\"");
    return numbers;
}

// A map of points: three rows of a matrix, each with its part of the translation behind.
using Transform = std::array<double, 12>;
constexpr Transform st_identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};

Transform product(Transform const & outer, Transform const & inner)
{
    Transform result{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 4; ++column) {
            double sum = column == 3 ? outer[4 * row + 3] : 0;
            for (std::size_t k = 0; k < 3; ++k)
                sum += outer[4 * row + k] * inner[4 * k + column];
            result[4 * row + column] = sum;
        }
    return result;
}

Transform transformOf(Json const & node)
{
    if (auto const matrix = numbersOf<16>(node, "matrix")) { // column by column
        Transform result{};
        for (std::size_t row = 0; row < 3; ++row)
            for (std::size_t column = 0; column < 4; ++column)
                result[4 * row + column] = (*matrix)[4 * column + row];
        return result;
    }
    auto const move = numbersOf<3>(node, "translation").value_or(std::array<double, 3>{0, 0, 0});
    auto const q = numbersOf<4>(node, "rotation").value_or(std::array<double, 4>{0, 0, 0, 1});
    auto const scale = numbersOf<3>(node, "scale").value_or(std::array<double, 3>{1, 1, 1});
    auto const [x, y, z, w] = q;
    std::array<double, 9> const rotation = {
        1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
        2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
        2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
    Transform result{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column)
            result[4 * row + column] = rotation[3 * row + column] * scale[column];
        result[4 * row + 3] = move[row];
    }
    return result;
}

// Bytes to sRGB from shares in linear light.
std::uint8_t asByte(double light)
{
    double const value = light > 0 ? std::min(light, 1.0) : 0.0;
    double const share = value <= 0.0031308 ? value * 12.92 : 1.055 * std::pow(value, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(255 * share));
}

// Numbers in a buffer, as the description says where and of what kind.
struct Accessor
{
    std::string_view bytes; ///< From the first number on.
    std::uint64_t count = 0;
    std::size_t components = 0;
    std::size_t stride = 0;
    std::uint64_t type = 0;
    bool isNormalized = false;

    static std::size_t sizeOf(std::uint64_t type)
    {
        switch (type) {
        case 5120: // signed and unsigned bytes
        case 5121:
            return 1;
        case 5122: // shorts
        case 5123:
            return 2;
        case 5125: // unsigned, and floating
        case 5126:
            return 4;
        default:
            throw InputError("the description of the scene has numbers of the unknown type " +
                             std::to_string(type));
        }
    }

    double at(std::uint64_t index, std::size_t component) const
    {
        char const * const place = bytes.data() + index * stride + component * sizeOf(type);
        switch (type) {
        case 5120:
            return std::max(-1.0, as<std::int8_t>(place, 127));
        case 5121:
            return as<std::uint8_t>(place, 255);
        case 5122:
            return std::max(isNormalized ? -1.0 : -40000.0, as<std::int16_t>(place, 32767));
        case 5123:
            return as<std::uint16_t>(place, 65535);
        case 5125:
            return as<std::uint32_t>(place, 1);
        default:
            return as<float>(place, 1);
        }
    }

private:
    template <class T>
    double as(char const * place, double one) const
    {
        T value;
        std::memcpy(&value, place, sizeof(T));
        return static_cast<double>(value) / (isNormalized ? one : 1.0);
    }
};

// The description of a scene and the buffers that it names.
class Scene
{
public:
    Scene(ByteSource & source, std::string folder) : m_folder(std::move(folder))
    {
        std::string_view const mark = "glTF";
        std::vector<char> text;
        if (source.peek(mark.size()) == mark)
            readChunks(source, text);
        else
            readAll(source, text);
        m_bytes += text.size();
        if (!m_json.parse(text) || !json().is_object())
            throw InputError("the input is not a glTF file: it has no description in JSON");
        checkExtensions();
        readBuffers();
    }

    Json const & json() const { return m_json.tree(); }
    std::uint64_t bytes() const { return m_bytes; }

    Accessor accessor(std::uint64_t index) const
    {
        Json const & description = element(json(), "accessors", index);
        if (find(description, "sparse") != nullptr || find(description, "bufferView") == nullptr)
            throw InputError("the description of the scene has sparse numbers, which are not read");
        Json const & view = element(json(), "bufferViews", wholeNumber(description, "bufferView", 0));
        Accessor accessor;
        accessor.count = wholeNumber(description, "count", 0);
        accessor.type = wholeNumber(description, "componentType", 0);
        std::string const shape = textOf(description, "type");
        accessor.components = shape == "SCALAR" ? 1
                              : shape == "VEC2" ? 2
                              : shape == "VEC3" ? 3
                              : shape == "VEC4" ? 4
                                                : 0;
        if (accessor.components == 0)
            throw InputError("the description of the scene has numbers of the unknown shape \"" +
                             quotable(shape) + "\"");
        Json const * const normalized = find(description, "normalized");
        accessor.isNormalized = normalized != nullptr && normalized->is_boolean() && normalized->get<bool>();

        std::size_t const size = accessor.components * Accessor::sizeOf(accessor.type);
        std::uint64_t const stride = wholeNumber(view, "byteStride", size);
        std::uint64_t const buffer = wholeNumber(view, "buffer", 0);
        std::uint64_t const viewStart = wholeNumber(view, "byteOffset", 0);
        std::uint64_t const viewLength = wholeNumber(view, "byteLength", 0);
        std::uint64_t const start = wholeNumber(description, "byteOffset", 0);
        bool isInside = buffer < m_buffers.size() && stride >= size && stride <= 1024;
        isInside = isInside && viewStart + viewLength <= m_buffers[static_cast<std::size_t>(buffer)].size();
        isInside =
            isInside && (accessor.count == 0 || (accessor.count <= viewLength &&
                                                 start + stride * (accessor.count - 1) + size <= viewLength));
        if (!isInside)
            throw InputError("the description of the scene has numbers outside of their buffer");
        if (accessor.count > 0)
            accessor.bytes =
                std::string_view(m_buffers[static_cast<std::size_t>(buffer)].data() + viewStart + start,
                                 static_cast<std::size_t>(viewLength - start));
        accessor.stride = static_cast<std::size_t>(stride);
        return accessor;
    }

private:
    static void readAll(ByteSource & source, std::vector<char> & bytes)
    {
        source.read(std::numeric_limits<std::uint64_t>::max(), bytes);
    }

    void readChunks(ByteSource & source, std::vector<char> & text)
    {
        std::size_t const header = 12;
        source.skip(header);
        for (int chunk = 0; chunk < 2; ++chunk) {
            std::uint32_t words[2] = {0, 0}; // length and kind
            std::string_view const start = source.peek(sizeof(words));
            if (start.size() < sizeof(words)) {
                if (chunk == 0)
                    throw InputError("the input is truncated: the description of the scene is missing");
                return;
            }
            std::memcpy(words, start.data(), sizeof(words));
            source.skip(sizeof(words));
            std::uint32_t const kinds[] = {0x4e4f534a, 0x004e4942}; // JSON, BIN
            if (words[1] != kinds[chunk])
                throw InputError("the input has parts in another order than glTF");
            std::vector<char> & bytes = chunk == 0 ? text : m_binary;
            source.read(words[0], bytes);
            if (bytes.size() < words[0])
                throw InputError("the input is truncated: " + std::to_string(words[0]) +
                                 " bytes are promised, and " + std::to_string(bytes.size()) + " are there");
        }
    }

    void checkExtensions() const
    {
        Json const * const required = find(json(), "extensionsRequired");
        if (required == nullptr || !required->is_array())
            return;
        for (Json const & name : *required) {
            std::string const text = name.is_string() ? name.get<std::string>() : std::string();
            if (text != "KHR_mesh_quantization" && text.rfind("KHR_materials_", 0) != 0 &&
                text != "KHR_texture_transform")
                throw InputError("the file needs the extension \"" + quotable(text) +
                                 "\", which is not read");
        }
    }

    void readBuffers()
    {
        Json const * const list = find(json(), "buffers");
        if (list == nullptr || !list->is_array())
            return;
        std::size_t const most = 100;
        if (list->size() > most)
            throw InputError("the description of the scene has more than 100 buffers");
        for (Json const & buffer : *list) {
            std::string const uri = textOf(buffer, "uri");
            std::vector<char> bytes;
            if (uri.empty())
                bytes.swap(m_binary);
            else if (uri.rfind("data:", 0) == 0)
                bytes = fromBase64(uri);
            else
                readFile(uri, bytes);
            if (bytes.size() < wholeNumber(buffer, "byteLength", 0))
                throw InputError("a buffer is truncated: it has " + std::to_string(bytes.size()) +
                                 " bytes, and the description promises more");
            m_bytes += bytes.size();
            m_buffers.push_back(std::move(bytes));
        }
    }

    // Only what lies in the folder of the description or below it.
    void readFile(std::string const & uri, std::vector<char> & bytes) const
    {
        std::string name;
        for (std::size_t i = 0; i < uri.size(); ++i) {
            auto const digit = [&](std::size_t place) {
                std::size_t const value =
                    place < uri.size() ? std::string_view("0123456789abcdef0123456789ABCDEF").find(uri[place])
                                       : std::string_view::npos;
                return value == std::string_view::npos ? -1 : static_cast<int>(value % 16);
            };
            bool const isEscape = uri[i] == '%' && digit(i + 1) >= 0 && digit(i + 2) >= 0;
            name += isEscape ? static_cast<char>(16 * digit(i + 1) + digit(i + 2)) : uri[i];
            i += isEscape ? 2 : 0;
        }
        bool const isOutside = name.empty() || name.front() == '/' || name.find('\0') != std::string::npos ||
                               name.find(':') != std::string::npos ||
                               ("/" + name + "/").find("/../") != std::string::npos;
        if (m_folder.empty() || isOutside)
            throw InputError("the numbers are in \"" + quotable(name) + "\", which is not beside the file");
        ByteSource source(m_folder + "/" + name);
        if (!source.isSizeKnown())
            throw InputError("the numbers are in \"" + quotable(name) + "\", which is not a file");
        readAll(source, bytes);
    }

    static std::vector<char> fromBase64(std::string const & uri)
    {
        std::size_t const comma = uri.find(";base64,");
        if (comma == std::string::npos)
            throw InputError("a buffer stands in the description in another form than base64");
        std::string_view const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::array<int, 256> values{};
        values.fill(-1);
        for (std::size_t i = 0; i < letters.size(); ++i)
            values[static_cast<unsigned char>(letters[i])] = static_cast<int>(i);
        std::vector<char> bytes;
        unsigned bits = 0;
        unsigned held = 0;
        for (std::size_t i = comma + 8; i < uri.size() && uri[i] != '='; ++i) {
            int const value = values[static_cast<unsigned char>(uri[i])];
            if (value < 0)
                throw InputError("a buffer stands in the description with a letter that is not base64");
            bits = (bits << 6 | static_cast<unsigned>(value)) & 0xffffffu;
            held += 6;
            if (held >= 8) {
                held -= 8;
                bytes.push_back(static_cast<char>(bits >> held & 255u));
            }
        }
        return bytes;
    }

    std::string m_folder;
    std::vector<char> m_binary;
    JsonText m_json;
    std::vector<std::vector<char>> m_buffers;
    std::uint64_t m_bytes = 0;
};

// Gathers the triangles of the meshes, node by node.
class Collector
{
public:
    explicit Collector(Scene const & scene) : m_scene(scene) {}

    VertexData collect()
    {
        Json const & json = m_scene.json();
        Json const * const nodes = find(json, "nodes");
        m_isVisited.assign(nodes != nullptr && nodes->is_array() ? nodes->size() : 0, false);
        if (find(json, "scenes") != nullptr) {
            addNodes(element(json, "scenes", wholeNumber(json, "scene", 0)), "nodes", st_identity, 0);
        } else { // without a scene, each node for itself
            for (std::size_t i = 0; i < m_isVisited.size(); ++i)
                if (!m_isVisited[i])
                    addNode(i, st_identity, 0);
        }
        if (!m_haveNormals)
            m_data.points.normals.clear();
        if (!m_haveColors)
            m_data.points.colors.clear();
        if (!m_haveDensity)
            m_data.density.clear();
        return std::move(m_data);
    }

private:
    void addNodes(Json const & owner, char const * key, Transform const & outer, int depth)
    {
        Json const * const list = find(owner, key);
        if (list == nullptr || !list->is_array())
            return;
        for (Json const & index : *list)
            addNode(wholeNumber(index, key), outer, depth);
    }

    void addNode(std::uint64_t index, Transform const & outer, int depth)
    {
        int const greatestDepth = 1000;
        Json const & node = element(m_scene.json(), "nodes", index);
        if (depth > greatestDepth || m_isVisited[static_cast<std::size_t>(index)])
            throw InputError("the nodes of the scene are no tree, or deeper than 1000");
        m_isVisited[static_cast<std::size_t>(index)] = true;
        Transform const transform = product(outer, transformOf(node));
        if (find(node, "mesh") != nullptr) {
            Json const * const primitives =
                find(element(m_scene.json(), "meshes", wholeNumber(node, "mesh", 0)), "primitives");
            if (primitives != nullptr && primitives->is_array())
                for (Json const & primitive : *primitives)
                    addPrimitive(primitive, transform);
        }
        addNodes(node, "children", transform, depth + 1);
    }

    // An attribute of as many vertices as there are positions; nothing when the primitive has none of it.
    std::optional<Accessor> attribute(Json const & attributes, char const * name, std::size_t components,
                                      std::uint64_t count) const
    {
        if (find(attributes, name) == nullptr)
            return std::nullopt;
        Accessor const accessor = m_scene.accessor(wholeNumber(attributes, name, 0));
        if (accessor.components < components || (count > 0 && accessor.count != count))
            throw InputError(std::string("the description of the scene has a ") + name +
                             " that does not fit the positions");
        return accessor;
    }

    void addPrimitive(Json const & primitive, Transform const & transform)
    {
        enum Mode
        {
            triangles = 4,
            strip = 5,
            fan = 6
        };
        std::uint64_t const mode = wholeNumber(primitive, "mode", triangles);
        Json const * const attributes = find(primitive, "attributes");
        if (mode < triangles || mode > fan || attributes == nullptr)
            return; // points and lines
        auto const positions = attribute(*attributes, "POSITION", 3, 0);
        if (!positions || positions->count == 0)
            return;
        std::uint64_t const count = positions->count;
        auto const normals = attribute(*attributes, "NORMAL", 3, count);
        auto const colors = attribute(*attributes, "COLOR_0", 3, count);
        auto const density = attribute(*attributes, "_DENSITY", 1, count);
        m_haveNormals = m_haveNormals && normals;
        m_haveColors = m_haveColors && colors;
        m_haveDensity = m_haveDensity && density;

        std::optional<Accessor> indices;
        if (find(primitive, "indices") != nullptr)
            indices = m_scene.accessor(wholeNumber(primitive, "indices", 0));
        std::uint64_t const corners = indices ? indices->count : count;
        // Nodes may repeat a mesh, and a short file become a long one.
        m_numbers += count + corners;
        std::size_t const first = m_data.points.positions64.size() / 3;
        if (m_numbers > 50 * (m_scene.bytes() + 1000) ||
            first + count > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
            throw InputError(
                "the scene repeats its meshes too often: more than 50 vertices for each byte of the file");

        for (std::uint64_t i = 0; i < count; ++i) {
            double const place[3] = {positions->at(i, 0), positions->at(i, 1), positions->at(i, 2)};
            for (std::size_t row = 0; row < 3; ++row)
                m_data.points.positions64.push_back(
                    transform[4 * row] * place[0] + transform[4 * row + 1] * place[1] +
                    transform[4 * row + 2] * place[2] + transform[4 * row + 3]);
            if (m_haveNormals)
                addNormal({normals->at(i, 0), normals->at(i, 1), normals->at(i, 2)}, transform);
            for (std::size_t channel = 0; m_haveColors && channel < 3; ++channel)
                m_data.points.colors.push_back(asByte(colors->at(i, channel)));
            if (m_haveDensity)
                m_data.density.push_back(static_cast<float>(density->at(i, 0)));
        }
        auto const corner = [&](std::uint64_t i) {
            double const index = indices ? indices->at(i, 0) : static_cast<double>(i);
            if (!(index >= 0 && index < static_cast<double>(count)))
                throw InputError(
                    "the description of the scene has a triangle with a vertex that there is not");
            return static_cast<std::int32_t>(first) + static_cast<std::int32_t>(index);
        };
        std::uint64_t const step = mode == triangles ? 3 : 1;
        for (std::uint64_t i = 0; i + 2 < corners; i += step) {
            bool const isTurned = mode == strip && i % 2 == 1;
            std::int32_t const a = corner(mode == fan ? 0 : i);
            std::int32_t const b = corner(isTurned ? i + 2 : i + 1);
            std::int32_t const c = corner(isTurned ? i + 1 : i + 2);
            m_data.triangles.insert(m_data.triangles.end(), {a, b, c});
        }
    }

    // Right for rotations and even scales.
    void addNormal(std::array<double, 3> const & normal, Transform const & transform)
    {
        std::array<double, 3> turned{};
        for (std::size_t row = 0; row < 3; ++row)
            for (std::size_t k = 0; k < 3; ++k)
                turned[row] += transform[4 * row + k] * normal[k];
        double const before = std::hypot(normal[0], normal[1], normal[2]);
        double const after = std::hypot(turned[0], turned[1], turned[2]);
        double const scale = after > 0 ? before / after : 0;
        for (double const value : turned)
            m_data.points.normals.push_back(static_cast<float>(scale * value));
    }

    Scene const & m_scene;
    std::vector<bool> m_isVisited;
    VertexData m_data;
    bool m_haveNormals = true;
    bool m_haveColors = true;
    bool m_haveDensity = true;
    std::uint64_t m_numbers = 0;
};

} // namespace

VertexData readGltf(ByteSource & source, std::string const & folder)
{
    Scene const scene(source, folder);
    return Collector(scene).collect();
}

} // namespace QZmath
