// Draws with GDI and whole numbers only, so that a run looks like every other one with the same fonts.
#include "benchmarks/scenes.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace kxvcr::bench {

namespace {

constexpr SIZE k720 = {1280, 720};
constexpr SIZE k1080 = {1920, 1080};
constexpr SIZE k4k = {3840, 2160};

class Font {
public:
    Font(int height, const wchar_t* face, int weight = FW_NORMAL)
        : m_font(CreateFontW(-height, 0, 0, 0, weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                             CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY, DEFAULT_PITCH, face)) {}
    ~Font() { DeleteObject(m_font); }
    Font(const Font&) = delete;
    Font& operator=(const Font&) = delete;

    HFONT Get() const noexcept { return m_font; }

private:
    HFONT m_font;
};

void Fill(HDC dc, const RECT& area, COLORREF color) {
    SetDCBrushColor(dc, color);
    FillRect(dc, &area, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
}

void Text(HDC dc, const Font& font, POINT at, COLORREF color, const std::wstring& text) {
    SelectObject(dc, font.Get());
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, color);
    TextOutW(dc, at.x, at.y, text.c_str(), static_cast<int>(text.size()));
}

// Moves an area up by whole pixels; what comes in from below is for the caller to draw.
void ScrollUp(HDC dc, const RECT& area, int by) {
    BitBlt(dc, area.left, area.top, area.right - area.left, area.bottom - area.top - by, dc, area.left, area.top + by,
           SRCCOPY);
}

std::wstring Words(std::mt19937& random, std::size_t length) {
    constexpr const wchar_t* kWords[] = {L"window", L"the",  L"packet", L"of",     L"a",    L"encoder",  L"and",
                                         L"screen", L"line", L"is",     L"record", L"fast", L"in",       L"0x7f3a",
                                         L"value",  L"for",  L"return", L"12.5",   L"file", L"quantiser"};
    std::wstring text;
    while (text.size() < length) {
        text += kWords[random() % std::size(kWords)];
        text += L' ';
    }
    text.resize(length);
    return text;
}

// A picture inside a page: soft colours with some grain.
void DrawPhoto(std::uint32_t* pixels, LONG stride, const RECT& area, std::uint32_t seed) {
    std::mt19937 random(seed);
    for (LONG y = area.top; y < area.bottom; ++y) {
        for (LONG x = area.left; x < area.right; ++x) {
            const std::uint32_t grain = random() % 12;
            const auto wave = static_cast<std::uint32_t>((x * 3 + y * 2 + static_cast<LONG>(seed)) / 4 % 256);
            const std::uint32_t up = wave < 128 ? wave : 255 - wave;
            const std::uint32_t red = 60 + up + grain;
            const std::uint32_t green = 200 - up + grain;
            const std::uint32_t blue = (90 + up / 2 + grain) & 0xFF;
            pixels[y * stride + x] = red << 16 | green << 8 | blue;
        }
    }
}

// Lines of coloured text come in at the lower end.
class Terminal {
public:
    Terminal(const RECT& area, std::uint32_t seed) : m_area(area), m_random(seed) {}

    void Start(HDC dc) {
        Fill(dc, m_area, RGB(18, 20, 24));
        for (LONG y = m_area.top; y + kLine <= m_area.bottom; y += kLine) {
            DrawLine(dc, y);
        }
    }

    void Scroll(HDC dc) {
        ScrollUp(dc, m_area, kLine);
        Fill(dc, {m_area.left, m_area.bottom - kLine, m_area.right, m_area.bottom}, RGB(18, 20, 24));
        DrawLine(dc, m_area.bottom - kLine);
    }

private:
    static constexpr int kLine = 16;

    void DrawLine(HDC dc, LONG y) {
        constexpr COLORREF kColors[] = {RGB(220, 220, 220), RGB(120, 220, 120), RGB(240, 200, 90), RGB(110, 170, 250)};
        const std::wstring text = Words(m_random, 8 + m_random() % 60);
        Text(dc, m_font, {m_area.left + 6, y}, kColors[m_random() % std::size(kColors)], text);
    }

    RECT m_area;
    std::mt19937 m_random;
    Font m_font{13, L"DejaVu Sans Mono"};
};

// A letter every third picture, and a cursor that blinks.
class Document {
public:
    explicit Document(const RECT& area) : m_area(area) {}

    void Start(HDC dc) {
        Fill(dc, m_area, RGB(255, 255, 255));
        for (LONG y = m_area.top + 20; y + kLine < m_area.bottom - 120; y += kLine) {
            Text(dc, m_font, {m_area.left + 40, y}, RGB(30, 30, 30), Words(m_random, 80));
        }
    }

    void Go(HDC dc, std::uint32_t number) {
        const LONG row = m_area.bottom - 110 + static_cast<LONG>(m_letters / kLetters % 4) * kLine;
        const LONG column = m_area.left + 40 + static_cast<LONG>(m_letters % kLetters) * kAdvance;
        Fill(dc, {column, row, column + 2, row + kLine}, RGB(255, 255, 255));
        if (number % 3 == 0) {
            const auto letter = static_cast<wchar_t>(L'a' + m_random() % 26);
            Text(dc, m_font, {column, row}, RGB(30, 30, 30), std::wstring(1, letter));
            ++m_letters;
        }
        if (number / 15 % 2 == 0) {
            const LONG at = m_area.left + 40 + static_cast<LONG>(m_letters % kLetters) * kAdvance;
            Fill(dc, {at, row, at + 2, row + kLine}, RGB(0, 0, 0));
        }
    }

private:
    static constexpr int kLine = 22;
    static constexpr int kAdvance = 10;
    static constexpr std::uint32_t kLetters = 60;

    RECT m_area;
    std::mt19937 m_random{7};
    std::uint32_t m_letters = 0;
    Font m_font{16, L"DejaVu Serif"};
};

// A soft, grainy picture that moves as a whole, as film does.
class Film {
public:
    explicit Film(const RECT& area) : m_area(area) {}

    void Draw(std::uint32_t number, std::uint32_t* pixels, LONG stride) {
        std::mt19937 random(number);
        std::uint32_t bits = 0;
        for (LONG y = m_area.top; y < m_area.bottom; ++y) {
            const auto v = static_cast<std::uint32_t>(y) + number;
            for (LONG x = m_area.left; x < m_area.right; ++x) {
                bits = bits < 64 ? static_cast<std::uint32_t>(random()) : bits >> 3;
                const std::uint32_t u = static_cast<std::uint32_t>(x) + number * 3;
                const std::uint32_t grain = bits % 8;
                const std::uint32_t red = Wave(u * 2 + v) / 2 + 60 + grain;
                const std::uint32_t green = Wave(u + v * 3) / 2 + 40 + grain;
                const std::uint32_t blue = Wave((u / 16 * 37) ^ (v / 16 * 91)) / 3 + 60 + grain;
                pixels[y * stride + x] = red << 16 | green << 8 | blue;
            }
        }
    }

private:
    static std::uint32_t Wave(std::uint32_t at) { return (at & 0xFF) < 128 ? at & 0x7F : 127 - (at & 0x7F); }

    RECT m_area;
};

class TerminalScene final : public Scene {
public:
    SIZE Size() const noexcept override { return k720; }
    void Draw(std::uint32_t number, HDC dc, std::uint32_t*) override {
        if (number == 0) {
            m_left.Start(dc);
            m_right.Start(dc);
            return;
        }
        if (number % 2 == 0) {
            m_left.Scroll(dc);
        }
        if (number % 5 == 0) {
            m_right.Scroll(dc);
        }
    }

private:
    Terminal m_left{{0, 0, 640, 720}, 1};
    Terminal m_right{{644, 0, 1280, 720}, 2};
};

// A page that is read: it stands for a second, then moves on by some lines.
class WebScene : public Scene {
public:
    SIZE Size() const noexcept override { return k720; }
    void Draw(std::uint32_t number, HDC dc, std::uint32_t* pixels) override {
        if (number == 0) {
            Fill(dc, {0, 0, k720.cx, k720.cy}, RGB(250, 250, 252));
            for (LONG y = kTop; y < k720.cy; y += kRow) {
                DrawRow(dc, pixels, y);
            }
            DrawBar(dc);
            return;
        }
        if (number % 60 < 40) {
            return;
        }
        constexpr int kStep = 8;
        ScrollUp(dc, {0, kTop, k720.cx, k720.cy}, kStep);
        Fill(dc, {0, k720.cy - kStep, k720.cx, k720.cy}, RGB(250, 250, 252));
        m_scrolled += kStep;
        if (m_scrolled % kRow == 0) {
            DrawRow(dc, pixels, k720.cy - kRow);
        }
    }

private:
    static constexpr LONG kTop = 64;
    static constexpr LONG kRow = 24;

    void DrawBar(HDC dc) {
        Fill(dc, {0, 0, k720.cx, kTop}, RGB(36, 60, 110));
        Text(dc, m_head, {40, 16}, RGB(255, 255, 255), L"News of the day");
    }

    void DrawRow(HDC dc, std::uint32_t* pixels, LONG y) {
        const std::uint32_t row = m_row++;
        if (row % 12 == 0) {
            Text(dc, m_head, {120, y - 4}, RGB(20, 40, 120), Words(m_random, 40));
        } else {
            Text(dc, m_font, {120, y}, RGB(40, 40, 44), Words(m_random, 90));
        }
        GdiFlush();
        DrawPhoto(pixels, k720.cx, {960, y, 1200, std::min(y + kRow - (row % 6 == 5 ? 8 : 0), k720.cy)}, row / 6);
    }

    std::mt19937 m_random{3};
    std::uint32_t m_row = 0;
    LONG m_scrolled = 0;
    Font m_font{15, L"DejaVu Sans"};
    Font m_head{24, L"DejaVu Serif", FW_BOLD};
};

class StillScene final : public WebScene {
public:
    void Draw(std::uint32_t number, HDC dc, std::uint32_t* pixels) override {
        if (number == 0) {
            WebScene::Draw(number, dc, pixels);
        }
    }
};

// Windows that are moved over a photo.
class WindowsScene final : public Scene {
public:
    SIZE Size() const noexcept override { return k720; }
    void Draw(std::uint32_t number, HDC dc, std::uint32_t* pixels) override {
        if (number == 0) {
            m_ground.resize(static_cast<std::size_t>(k720.cx * k720.cy));
            DrawPhoto(m_ground.data(), k720.cx, {0, 0, k720.cx, k720.cy}, 40);
        }
        GdiFlush();
        std::copy(m_ground.begin(), m_ground.end(), pixels);
        const auto step = static_cast<LONG>(number % 240);
        const LONG swing = step < 120 ? step : 240 - step;
        DrawWindow(dc, {80 + swing * 4, 60 + swing}, RGB(245, 245, 245), 1);
        DrawWindow(dc, {700 - swing * 3, 320 - swing * 2}, RGB(255, 252, 240), 2);
    }

private:
    void DrawWindow(HDC dc, POINT at, COLORREF color, std::uint32_t seed) {
        constexpr LONG kWidth = 460;
        constexpr LONG kHeight = 300;
        Fill(dc, {at.x, at.y, at.x + kWidth, at.y + kHeight}, color);
        Fill(dc, {at.x, at.y, at.x + kWidth, at.y + 28}, RGB(60, 90, 150));
        Text(dc, m_font, {at.x + 10, at.y + 5}, RGB(255, 255, 255), L"Window " + std::to_wstring(seed));
        std::mt19937 random(seed);
        for (LONG y = at.y + 40; y + 20 < at.y + kHeight; y += 20) {
            Text(dc, m_font, {at.x + 12, y}, RGB(30, 30, 30), Words(random, 46));
        }
    }

    std::vector<std::uint32_t> m_ground;
    Font m_font{14, L"DejaVu Sans"};
};

class TypingScene final : public Scene {
public:
    explicit TypingScene(SIZE size) : m_size(size), m_document({0, 0, size.cx, size.cy}) {}

    SIZE Size() const noexcept override { return m_size; }
    void Draw(std::uint32_t number, HDC dc, std::uint32_t*) override {
        if (number == 0) {
            m_document.Start(dc);
            return;
        }
        m_document.Go(dc, number);
    }

private:
    SIZE m_size;
    Document m_document;
};

// A film in a corner, a terminal and a document that is written.
class MixScene final : public Scene {
public:
    SIZE Size() const noexcept override { return k1080; }
    void Draw(std::uint32_t number, HDC dc, std::uint32_t* pixels) override {
        if (number == 0) {
            Fill(dc, {0, 0, k1080.cx, k1080.cy}, RGB(70, 80, 90));
            m_terminal.Start(dc);
            m_document.Start(dc);
        } else {
            m_document.Go(dc, number);
            if (number % 4 == 0) {
                m_terminal.Scroll(dc);
            }
        }
        GdiFlush();
        m_film.Draw(number / 2, pixels, k1080.cx);
    }

private:
    Terminal m_terminal{{0, 0, 940, 1080}, 5};
    Document m_document{{960, 320, 1900, 1060}};
    Film m_film{{1440, 20, 1900, 280}};
};

class MotionScene final : public Scene {
public:
    SIZE Size() const noexcept override { return k720; }
    void Draw(std::uint32_t number, HDC, std::uint32_t* pixels) override { m_film.Draw(number, pixels, k720.cx); }

private:
    Film m_film{{0, 0, 1280, 720}};
};

} // namespace

std::unique_ptr<Scene> MakeScene(std::string_view name) {
    if (name == "terminal") {
        return std::make_unique<TerminalScene>();
    }
    if (name == "web") {
        return std::make_unique<WebScene>();
    }
    if (name == "windows") {
        return std::make_unique<WindowsScene>();
    }
    if (name == "typing") {
        return std::make_unique<TypingScene>(k720);
    }
    if (name == "typing4k") {
        return std::make_unique<TypingScene>(k4k);
    }
    if (name == "mix") {
        return std::make_unique<MixScene>();
    }
    if (name == "motion") {
        return std::make_unique<MotionScene>();
    }
    if (name == "still") {
        return std::make_unique<StillScene>();
    }
    return nullptr;
}

} // namespace kxvcr::bench
