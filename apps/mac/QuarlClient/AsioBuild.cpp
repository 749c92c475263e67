// The one translation unit that compiles Asio, its TLS layer and Beast; every other file
// includes their headers only (BOOST_ASIO_SEPARATE_COMPILATION, BOOST_BEAST_SEPARATE_COMPILATION).
#include <boost/asio/impl/src.hpp>
#include <boost/asio/ssl/impl/src.hpp>
#include <boost/beast/src.hpp>
