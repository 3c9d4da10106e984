-- Year tables of one device's database in an Oracle store, to be created before its first mem file of
-- a year comes. Run it as the device's user, YYYY replaced by the year:
--
--   sed 's/_YYYY/_2013/' year_tables.sql | sqlplus WLAN_1A2B3C4D/...
--
-- city holds the checksum of "/<city>/", the city of the device in devstate.ini, or 0.

create table T_FLOW1Y_YYYY (
  day        date       not null,
  city       number(10) not null,
  local_flag number(1)  not null,
  sessions   number(20) not null,
  seconds    number(20) not null,
  up_bytes   number(20) not null,
  down_bytes number(20) not null,
  primary key (day, city, local_flag)
);

create table T_AUTH1Y_YYYY (
  day      date       not null,
  city     number(10) not null,
  attempts number(20) not null,
  failures number(20) not null,
  primary key (day, city)
);
